// bench_extract <package.zip> <staging>: extracts once and prints "seconds=<s> files=<n> rss_kib=<peak>".
#include "extract/archive_extractor.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <sys/resource.h>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_extract <package.zip> <staging>\n");
        return 2;
    }
    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    QElapsedTimer timer;
    timer.start();
    const auto result = ArchiveExtractor::extractZip(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]),
                                                     cancel, processed, [](qint64, qint64) { });
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    if (result.status != 0) {
        std::fprintf(stderr, "extraction failed with status %d\n", result.status);
        return 1;
    }
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("seconds=%.3f files=%lld rss_kib=%ld\n", seconds, static_cast<long long>(result.files.size()), usage.ru_maxrss);
    return 0;
}
