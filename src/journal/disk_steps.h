#pragma once

// Every change that the journals and the in-place install make to the disk (a record save, a
// move, a directory made or removed) or to the registry (an entry restored or retired) is
// announced here once it has happened. Production code
// installs no observer; the crash tests install one that ends the process at a chosen change, so
// that every point where a real crash could strike is proven recoverable.
namespace DiskSteps {

using Observer = void (*)(const char *step);

void setObserver(Observer observer);
void passed(const char *step);

} // namespace DiskSteps
