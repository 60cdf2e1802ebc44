#!/usr/bin/env bash
# tools/bench commit [--files N]: an installation of N files (default 10 000) replaced in place
# through the journal, then rolled back; the last line is the summary.
set -euo pipefail
build=${BRISA_HOST_BUILD:?BRISA_HOST_BUILD names the host build tree}
files=10000
while [ $# -gt 0 ]; do
    case "$1" in
        --files) files=${2:?--files needs a number}; shift 2 ;;
        *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
cmake --build "$build" --target bench_commit >/dev/null
# The journal records the desktop user; the host build takes it from the environment.
export BRISA_HOST_DESKTOP_SID=${BRISA_HOST_DESKTOP_SID:-S-1-5-21-1000-2000-3000-1001}
exec "$build/bench/commit/bench_commit" "$files"
