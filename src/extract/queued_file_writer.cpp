#include "extract/queued_file_writer.h"

#include "extract/zip_entry_writer.h"

#include <QFile>

#include <algorithm>
#include <system_error>

namespace {

// Enough files ahead to keep the thread busy, few enough that memory stays small.
constexpr qint64 queueLimitBytes = 8 << 20;

} // namespace

QueuedFileWriter::QueuedFileWriter(const std::atomic<bool> &cancelFlag)
    : m_cancelFlag(cancelFlag)
{
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error &) {
        // No thread to be had: write() writes each file itself.
    }
}

QueuedFileWriter::~QueuedFileWriter()
{
    m_dropping = true;
    {
        const std::lock_guard<std::mutex> locked(m_lock);
        m_stopping = true;
        m_queue.clear();
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void QueuedFileWriter::write(const QString &path, QByteArray content)
{
    Item item { path, std::move(content) };
    if (!m_thread.joinable()) {
        writeNow(item);
        return;
    }
    std::unique_lock<std::mutex> locked(m_lock);
    // A file larger than the limit still goes in once the queue is empty.
    m_changed.wait(locked, [this] { return m_queue.empty() || m_queuedBytes < queueLimitBytes; });
    m_queuedBytes += item.content.size();
    m_queue.push_back(std::move(item));
    locked.unlock();
    m_changed.notify_all();
}

QueuedFileWriter::Failure QueuedFileWriter::drain()
{
    std::unique_lock<std::mutex> locked(m_lock);
    m_changed.wait(locked, [this] { return m_queue.empty() && !m_busy; });
    return m_failure.load();
}

void QueuedFileWriter::run()
{
    std::unique_lock<std::mutex> locked(m_lock);
    for (;;) {
        m_changed.wait(locked, [this] { return m_stopping || !m_queue.empty(); });
        if (m_queue.empty())
            return;
        // Everything queued so far in one go: the lock is taken once per batch, not per file,
        // so the decoding thread seldom waits for it.
        std::deque<Item> batch;
        batch.swap(m_queue);
        m_busy = true;
        locked.unlock();
        qint64 written = 0;
        for (const Item &item : batch) {
            writeNow(item);
            written += item.content.size();
        }
        batch.clear();
        locked.lock();
        m_queuedBytes -= written;
        m_busy = false;
        m_changed.notify_all();
    }
}

void QueuedFileWriter::writeNow(const Item &item)
{
    // After the first failure the run is over: nothing more is written into staging.
    if (m_cancelFlag.load() || m_dropping.load() || m_failure.load() != Failure::None)
        return;
    QFile file(item.path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        m_failure = Failure::Create;
        return;
    }
    bool written = true;
    for (qint64 offset = 0; written && offset < item.content.size(); offset += ZipEntryWriter::writeBlockBytes) {
        const qint64 length = std::min<qint64>(ZipEntryWriter::writeBlockBytes, item.content.size() - offset);
        written = file.write(item.content.constData() + offset, length) == length;
    }
    file.close();
    if (!written || file.error() != QFileDevice::NoError) {
        file.remove();
        m_failure = Failure::Write;
    }
}
