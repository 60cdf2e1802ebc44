// An installation of N files in N/100 directories is replaced by a payload that rewrites 90% of
// them and adds the rest, through the journal as the finalizer does it; then everything is
// rolled back. Both phases are timed and the result is checked file by file.
#include "finalize/in_place_install.h"
#include "journal/overlay_transaction.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

namespace {

QString relativeName(int index)
{
    return QStringLiteral("dir%1/file%2.bin").arg(index / 100, 4, 10, QLatin1Char('0')).arg(index);
}

QByteArray content(int index, char generation)
{
    QByteArray bytes(1024 + (index % 7) * 1024, generation);
    bytes.prepend(QByteArray::number(index));
    return bytes;
}

bool write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

int check(const QString &root, int files, char generation)
{
    int wrong = 0;
    for (int i = 0; i < files; ++i) {
        const bool present = generation == 'n' || i % 10 != 9;
        QFile file(root + QLatin1Char('/') + relativeName(i));
        if (present != file.exists() || (present && (!file.open(QIODevice::ReadOnly) || file.readAll() != content(i, i % 10 == 9 ? 'n' : generation))))
            ++wrong;
    }
    return wrong;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int files = argc > 1 ? QByteArray(argv[1]).toInt() : 10000;
    QTemporaryDir base(QDir::tempPath() + QStringLiteral("/bench-commit-XXXXXX"));
    const QString root = base.path() + QStringLiteral("/BrisaLinker");
    const QString stage = base.path() + QStringLiteral("/BrisaLinker.installing-1-1");
    for (int i = 0; i < files; ++i) {
        if (i % 10 != 9 && !write(root + QLatin1Char('/') + relativeName(i), content(i, 'o')))
            return 1;
        if (!write(stage + QLatin1Char('/') + relativeName(i), content(i, 'n')))
            return 1;
    }

    QElapsedTimer timer;
    timer.start();
    OverlayTransaction::State state;
    QString error;
    if (!OverlayTransaction::begin(root, stage, &state, &error)) {
        std::fprintf(stderr, "begin failed: %s\n", qPrintable(error));
        return 1;
    }
    const double beginSeconds = timer.nsecsElapsed() / 1e9;
    const QString backup = state.record.value(QStringLiteral("backup")).toString();
    InPlaceInstall::OverlayState overlay;
    if (!InPlaceInstall::installStagedFilesInPlace(stage, root, backup, &overlay, nullptr)
        || !OverlayTransaction::metadataStarted(&state, &error))
        return 1;
    const double installSeconds = timer.nsecsElapsed() / 1e9;
    std::printf("installed %d files (%d replaced), journal %lld bytes, recorded in %.3f s, moved in %.3f s\n", files,
                files - files / 10, static_cast<long long>(QFile(OverlayTransaction::path(root)).size()), beginSeconds,
                installSeconds - beginSeconds);
    const int wrongNew = check(root, files, 'n');

    timer.restart();
    const bool movedBack = InPlaceInstall::rollbackStagedFiles(stage, root, backup, overlay);
    const double moveBackSeconds = timer.nsecsElapsed() / 1e9;
    if (!OverlayTransaction::rollback(&state, &error) || !movedBack) {
        std::fprintf(stderr, "rollback failed: %s\n", qPrintable(error));
        return 1;
    }
    const double rollbackSeconds = timer.nsecsElapsed() / 1e9;
    std::printf("rolled back: moved back in %.3f s, record checked and retired in %.3f s\n", moveBackSeconds,
                rollbackSeconds - moveBackSeconds);
    const int wrongOld = check(root, files, 'o');
    std::printf("checked: %d wrong after install, %d wrong after rollback\n", wrongNew, wrongOld);
    if (wrongNew || wrongOld)
        return 1;
    std::printf("commit files=%d install_s=%.3f rollback_s=%.3f\n", files, installSeconds, rollbackSeconds);
    return 0;
}
