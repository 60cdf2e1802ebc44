#pragma once

// The uninstaller's few texts, in the installer's four languages.

struct Text
{
    const wchar_t *title;
    const wchar_t *confirm;
    const wchar_t *done;
    const wchar_t *incomplete;
    const wchar_t *notInstallation;
};

const Text &uninstallerText();
