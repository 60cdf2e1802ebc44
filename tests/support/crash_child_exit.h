#pragma once

namespace CrashChild {

// Ends the process at once, as the operating system ends a killed one.
[[noreturn]] void dieNow();

} // namespace CrashChild
