#!/usr/bin/env bash
# Starts the real installer under Wine the way users and updaters do and checks what it shows and
# how it ends. A box is answered with the keyboard through the X server, as a user would.
set -u
exe=$1
run=${BRISA_WINE_RUN:?}
state="$BRISA_WINEPREFIX.state"
failures=0
check() { # name expected actual
    if [ "$2" = "$3" ]; then echo "PASS   : $1"; else echo "FAIL!  : $1 (expected exit $2, got $3)"; failures=$((failures + 1)); fi
}

"$run" --up || exit 1
export DISPLAY=":$(tr -dc 0-9 < "$state/display")"

start=$(date +%s%N)
timeout 120 "$run" --plain "$exe" --bootstrapper-smoke; code=$?
echo "bootstrapper-smoke took $(( ($(date +%s%N) - start) / 1000000 )) ms"
check "the resource self-check passes" 0 "$code"

# With the self-check, bad arguments end the process at once: a box would block until timeout.
timeout 120 "$run" --plain "$exe" --bootstrapper-smoke --update; code=$?
check "self-check with invalid arguments exits 3 without a box" 3 "$code"
timeout 120 "$run" --plain "$exe" --bootstrapper-smoke --install-dir --update; code=$?
check "self-check with a value option missing its value exits 3" 3 "$code"

# Without it, the user is shown the message and the process ends with 2 once it is dismissed.
answer_box() { # expected-exit name args...
    local expected=$1 name=$2; shift 2
    "$run" --plain "$exe" "$@" & local pid=$!
    local window
    window=$(timeout 90 xdotool search --sync --onlyvisible --name '^Brisa-Linker Installer$' 2>/dev/null | head -n 1)
    if [ -z "$window" ]; then
        echo "FAIL!  : $name (no box appeared)"; failures=$((failures + 1)); kill $pid 2>/dev/null; wait $pid; return
    fi
    sleep 1
    [ -n "${BRISA_SCREENSHOTS:-}" ] && import -window root "$BRISA_SCREENSHOTS/$(echo "$name" | tr ' ' '-').png" 2>/dev/null
    # No window manager runs on the test display: focus the box directly, then press Enter.
    xdotool windowfocus --sync "$window" && xdotool key --clearmodifiers Return
    local code
    if ! timeout 60 tail --pid=$pid -f /dev/null; then kill $pid; fi
    wait $pid; code=$?
    check "$name" "$expected" "$code"
}
answer_box 2 "invalid arguments show the box and exit 2" --update
answer_box 2 "a duplicate option shows the box and exits 2" --installer-source a --installer-source b

echo "Totals: $((5 - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
