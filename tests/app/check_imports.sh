#!/usr/bin/env bash
# Fails when the exe imports any DLL that is not part of Windows itself.
set -euo pipefail
exe=$1
allowed='^(kernel32|user32|gdi32|advapi32|shell32|ole32|oleaut32|shlwapi|userenv|version|ws2_32|crypt32|secur32|ncrypt|bcrypt|iphlpapi|dnsapi|winmm|winhttp|imm32|dwmapi|dwrite|uxtheme|comdlg32|comctl32|netapi32|wtsapi32|setupapi|winspool\.drv|authz|mpr|userenv|msvcrt|ntdll|d3d9|d3d11|dxgi|dcomp|shcore|api-ms-win-[a-z0-9-]+)\.dll$'
imports=$(x86_64-w64-mingw32-objdump -p "$exe" | sed -n 's/^\s*DLL Name: //p' | tr 'A-Z' 'a-z' | sort -u)
echo "$exe imports:"; echo "$imports" | sed 's/^/  /'
bad=$(echo "$imports" | grep -Ev "$allowed" || true)
if [ -n "$bad" ]; then
    echo "not a Windows system DLL:"; echo "$bad"
    exit 1
fi
echo "size: $(stat -c %s "$exe") bytes"
