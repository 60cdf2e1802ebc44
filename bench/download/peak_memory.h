#pragma once

#include <QtGlobal>

// The process's peak resident memory so far, in KiB.
qint64 peakMemoryKib();
