#!/usr/bin/env bash
# tools/bench extract [--size BYTES]: two packages made for the run, (a) a few large files of
# about BYTES in all (default 1 GiB), (b) 20 000 small files, each extracted by our
# ArchiveExtractor, by unzip and by bsdtar in the same run. The last line is the summary.
set -euo pipefail
calc() { awk "BEGIN { print $1 }"; }
build=${BRISA_HOST_BUILD:?BRISA_HOST_BUILD names the host build tree}
size=1073741824
while [ $# -gt 0 ]; do
    case "$1" in
        --size) size=${2:?--size needs a byte count}; shift 2 ;;
        *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
cmake --build "$build" --target bench_extract >/dev/null
ours="$build/bench/extract/bench_extract"

work=$(mktemp -d "${TMPDIR:-/tmp}/brisa-bench-extract.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Half random, half runs of text: compresses about as well as a real program package.
python3 - "$work" "$size" <<'PY'
import os, sys, zipfile, random
work, size = sys.argv[1], int(sys.argv[2])
rng = random.Random(7)
def content(n):
    block = os.urandom(1 << 19) + (b"brisa-linker payload line %d\n" % rng.randrange(1 << 30)) * ((1 << 19) // 40)
    out = bytearray()
    while len(out) < n:
        out += block[: n - len(out)]
    return bytes(out)
with zipfile.ZipFile(os.path.join(work, "large.zip"), "w", zipfile.ZIP_DEFLATED, compresslevel=1) as z:
    parts = 4
    for i in range(parts):
        z.writestr("bin/large-%d.bin" % i, content(size // parts))
with zipfile.ZipFile(os.path.join(work, "small.zip"), "w", zipfile.ZIP_DEFLATED, compresslevel=6) as z:
    for i in range(20000):
        z.writestr("res/%03d/file-%05d.txt" % (i // 200, i), content(rng.randrange(256, 8192)))
PY
sync

timed() { # command...; prints its wall seconds, keeps its output in last.out
    local start end
    sync
    start=$(date +%s.%N)
    "$@" >"$work/last.out"
    end=$(date +%s.%N)
    calc "$end - $start"
}

rss_kib=0
declare -A result
for kind in large small; do
    zip="$work/$kind.zip"
    rm -rf "$work/out"
    # Timed from outside like the others, process start included.
    ours_s=$(timed "$ours" "$zip" "$work/out/ours")
    line=$(cat "$work/last.out")
    rss=$(sed -n 's/.*rss_kib=\([0-9]*\).*/\1/p' <<<"$line")
    [ "$rss" -gt "$rss_kib" ] && rss_kib=$rss
    rm -rf "$work/out"
    mkdir -p "$work/out/unzip" "$work/out/bsdtar"
    unzip_s=$(timed unzip -q "$zip" -d "$work/out/unzip")
    rm -rf "$work/out/unzip"
    bsdtar_s=$(timed bsdtar -xf "$zip" -C "$work/out/bsdtar")
    rm -rf "$work/out"
    best=$(calc "($unzip_s < $bsdtar_s) ? $unzip_s : $bsdtar_s")
    echo "$kind: $(stat -c %s "$zip") bytes packed; ours ${ours_s}s, unzip ${unzip_s}s, bsdtar ${bsdtar_s}s, ours peak RSS $((rss / 1024)) MiB"
    result[$kind]=$(calc "$best / $ours_s")
done
printf 'extract ratio_large=%.2f ratio_small=%.2f rss_mib=%d\n' "${result[large]}" "${result[small]}" $((rss_kib / 1024))
