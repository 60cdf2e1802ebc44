#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

// Creates and writes small files on a thread of its own, in the order they were queued, while
// the extraction goes on decoding the next entries: in a package of many small files, creating
// the files costs as much as everything else together. Where no thread can be had, each file
// is written at once by the caller.
class QueuedFileWriter
{
public:
    enum class Failure { None, Create, Write };

    explicit QueuedFileWriter(const std::atomic<bool> &cancelFlag);
    // Files still queued are dropped: only a run that drained its queue has succeeded.
    ~QueuedFileWriter();
    QueuedFileWriter(const QueuedFileWriter &) = delete;
    QueuedFileWriter &operator=(const QueuedFileWriter &) = delete;

    // Queues the whole content of the file at `path`, which is created or truncated. Waits while
    // the queue holds too many bytes. After a failure or a cancel, files are dropped unwritten.
    void write(const QString &path, QByteArray content);
    // Waits until every queued file is written or dropped; the first failure, if any.
    Failure drain();
    // The first failure so far, without waiting.
    Failure failure() const { return m_failure.load(); }

private:
    struct Item
    {
        QString path;
        QByteArray content;
    };

    void run();
    void writeNow(const Item &item);

    const std::atomic<bool> &m_cancelFlag;
    std::atomic<Failure> m_failure { Failure::None };

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<Item> m_queue;
    qint64 m_queuedBytes = 0; // queued, or in the batch being written
    bool m_busy = false;      // the thread holds a batch taken off the queue
    bool m_stopping = false;
    std::atomic<bool> m_dropping { false }; // set by the destructor: nothing more is written
    std::thread m_thread;
};
