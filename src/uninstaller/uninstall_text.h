#pragma once

// The uninstaller's few texts, in the installer's four languages.

struct Text
{
    const wchar_t *title;
    const wchar_t *confirm;
    const wchar_t *done;
    const wchar_t *incomplete;
    const wchar_t *notInstallation;
    // Asked before running product processes are force-closed: runningBefore, the programs one
    // a line, runningAfter.
    const wchar_t *running;
    const wchar_t *runningBefore;
    const wchar_t *runningAfter;
    const wchar_t *notClosed;
    const wchar_t *stillLocked;
};

const Text &uninstallerText();
