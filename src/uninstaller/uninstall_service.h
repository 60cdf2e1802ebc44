#pragma once

#include <string>

// The product's maintenance service "BrisaLinkerMaintenance" (docs/maintenance-service.md), as
// far as the uninstaller is concerned: it belongs to an installation when its program lies in
// that installation's "WinServices" folder. Another installation's service is never touched.

inline constexpr int serviceStopTimeoutMs = 15000;

// Whether the service is registered and its program is this installation's.
bool maintenanceServiceBelongsTo(const std::wstring &installDirectory);

// Stops the installation's service (waiting at most timeoutMs), deletes it and removes the
// "WinServices" folder without following links. Needs an administrator when there is a service or
// a folder. True when neither is left; a missing service and folder count as removed.
bool removeMaintenanceService(const std::wstring &installDirectory, int timeoutMs = serviceStopTimeoutMs);
