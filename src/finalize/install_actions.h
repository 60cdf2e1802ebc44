#pragma once

#include <QString>

#include <functional>

// The system changes the product can live without and only an administrator can make: the
// virtual camera's COM registration (32 and 64 bit) and inbound firewall rules for the
// application and its updater. Each runs as its own system program, one after another.

// A registration or firewall program that has not finished by then is killed; a hung system tool
// must not keep the installation from completing.
constexpr int installActionTimeoutMs = 30000;

// Every problem (missing program, start failure, timeout, non-zero exit) is logged and adds one
// to *warnings; nothing here fails the installation. progress receives the stage texts.
void runInstallActions(const QString &installDir, const QString &otherRoot, int *warnings,
                       const std::function<void(const QString &text)> &progress);
