#!/usr/bin/env bash
# Runs a Windows test executable under Wine for CTest and returns its own exit code.
#   wine-run.sh --up            create the build tree's 64-bit prefix (once) and start Xvfb
#   wine-run.sh --down          stop Xvfb and the prefix's wineserver
#   wine-run.sh EXE [ARGS...]   run a Qt Test executable and print its report
#   wine-run.sh --plain EXE ... run any program, output as it comes
# BRISA_DESKTOP_SHELL names the desktop shell stand-in (tests/support/desktop_shell.c).
# Qt Test's report does not reach a pipe through stdout under Wine, so the report goes to a
# file that is printed afterwards.
set -u
prefix=${BRISA_WINEPREFIX:?BRISA_WINEPREFIX must name the Wine prefix}
wine=${BRISA_WINE:-/usr/lib/wine/wine64}
wineserver=$(dirname "$wine")/wineserver
state="$prefix.state"
mkdir -p "$state"
# Wine mirrors every shell link saved into the Linux desktop's menus through a helper process that,
# when the link's target cannot be read yet, waits for the saving process to end while holding a
# display connection. Tests save hundreds of links whose targets are fakes: the helpers pile up
# until the display refuses clients and COM fails in the tests' own processes. Windows has no such
# helper.
export WINEPREFIX="$prefix" WINEARCH=win64 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"

display_alive() {
    [ -s "$state/xvfb.pid" ] && kill -0 "$(cat "$state/xvfb.pid")" 2>/dev/null
}

up() {
    exec 9>"$state/lock"
    flock 9
    if ! display_alive; then
        rm -f "$state/display"
        setsid Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$state/display" \
            >/dev/null 2>&1 < /dev/null &
        echo $! > "$state/xvfb.pid"
        for _ in $(seq 100); do [ -s "$state/display" ] && break; sleep 0.1; done
        [ -s "$state/display" ] || { echo "Xvfb did not start" >&2; return 1; }
    fi
    export DISPLAY=":$(tr -dc 0-9 < "$state/display")"
    if [ ! -f "$prefix/system.reg" ]; then
        echo "creating Wine prefix $prefix"
        "$wine" wineboot -i >/dev/null 2>&1
        "$wineserver" -w
    fi
    # Wine points the user's shell folders (Desktop, Documents, ...) at $HOME through Unix
    # symlinks, which Windows code sees as reparse points; on Windows they are plain folders, and
    # the installer refuses to write shortcuts through a link. Make them plain folders.
    local folder
    for folder in "$prefix"/drive_c/users/*/* "$prefix"/drive_c/users/*/AppData/Roaming/Microsoft/Windows/*; do
        if [ -L "$folder" ] && [ -d "$folder" ]; then rm -f "$folder" && mkdir -p "$folder"; fi
    done
    # Windows code under Wine 8 cannot make links, but a Unix symlink inside drive_c shows to it
    # as a directory reparse point (a file symlink as a plain file). Tests that must prove links
    # are refused use these.
    local links="$prefix/drive_c/brisa-link-fixture"
    if [ ! -L "$links/dir-link" ]; then
        mkdir -p "$links/real/inner"
        echo real > "$links/real/file.txt"
        ln -sfn "$links/real" "$links/dir-link"
        ln -sfn "$links/real/file.txt" "$links/file-link"
    fi
    # An installation with a directory link inside it that points outside.
    if [ ! -L "$links/install-with-link/BrisaLinker/plugins" ]; then
        mkdir -p "$links/outside" "$links/install-with-link/BrisaLinker"
        echo victim > "$links/outside/victim.txt"
        ln -sfn "$links/outside" "$links/install-with-link/BrisaLinker/plugins"
    fi
    # A persistent server keeps later starts fast.
    "$wineserver" -p >/dev/null 2>&1 || true
    # Windows mounts each signed-in user's classes hive at HKEY_USERS\<SID>_Classes, where the
    # installer keeps its URL scheme; Wine has no such key, so the prefix gets one per user. Wine
    # keeps it in memory only, for as long as the server runs (down removes the marker).
    if [ ! -f "$state/user-classes" ]; then
        local sid
        for sid in $("$wine" reg query HKU 2>/dev/null | tr -d '\r' | sed -n 's/^HKEY_USERS\\\(S-1-5-21-[0-9-]*\)$/\1/p'); do
            "$wine" reg add "HKU\\${sid}_Classes" /f >/dev/null 2>&1 || { echo "cannot add ${sid}_Classes" >&2; return 1; }
        done
        touch "$state/user-classes"
    fi
    # Wine runs no shell; a stand-in owns the shell window so the desktop user can be found.
    if [ -n "${BRISA_DESKTOP_SHELL:-}" ] && ! { [ -s "$state/shell.pid" ] && kill -0 "$(cat "$state/shell.pid")" 2>/dev/null; }; then
        rm -f "$state/shell.ready"
        setsid "$wine" "$BRISA_DESKTOP_SHELL" "Z:$state/shell.ready" >/dev/null 2>&1 < /dev/null &
        echo $! > "$state/shell.pid"
        for _ in $(seq 200); do [ -s "$state/shell.ready" ] && break; sleep 0.1; done
        [ -s "$state/shell.ready" ] || { echo "the desktop shell stand-in did not start" >&2; return 1; }
    fi
    flock -u 9
}

down() {
    "$wineserver" -k >/dev/null 2>&1 || true
    rm -f "$state/shell.pid" "$state/shell.ready" "$state/user-classes"
    if display_alive; then kill "$(cat "$state/xvfb.pid")" 2>/dev/null || true; fi
    rm -f "$state/xvfb.pid" "$state/display"
}

case "${1:-}" in
    --up) up; exit $? ;;
    --down) down; exit 0 ;;
esac

up || exit 1
if [ "${1:-}" = "--plain" ]; then
    shift
    "$wine" "$@"
    exit $?
fi

exe=$1; shift
report=$(mktemp "$state/report.XXXXXX")
"$wine" "$exe" -o "Z:$report,txt" "$@" >/dev/null 2>"$report.err"
rc=$?
cat "$report"
# Anything written to stderr (crash reports, qFatal) is worth seeing when a test fails.
# The exit code tells a test that failed from a process that was ended from outside.
[ "$rc" -eq 0 ] || { cat "$report.err"; echo "$(basename "$exe") exited with code $rc"; } >&2
rm -f "$report" "$report.err"
exit $rc
