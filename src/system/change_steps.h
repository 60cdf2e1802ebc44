#pragma once

// Every change that an installation, its rollback or its recovery makes to the disk or the
// registry (a record save, a move, a directory made or removed, a shortcut written, a registry
// value or key written or deleted) is announced here once it has happened. Production code
// installs no observer; the crash tests install one that ends the process at a chosen change, so
// that every point where a real crash could strike is proven recoverable. Plain C++, so the
// registry code that knows nothing of Qt can announce its changes too.
namespace ChangeSteps {

using Observer = void (*)(const char *step);

void setObserver(Observer observer);
void passed(const char *step);

} // namespace ChangeSteps
