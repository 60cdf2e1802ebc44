#!/usr/bin/env bash
# tools/bench extract [--size BYTES] [--runs N]: two packages made for the run, (a) a few large
# files of about BYTES in all (default 1 GiB), (b) 20 000 small files, each extracted by our
# ArchiveExtractor, by unzip and by bsdtar. Every tool runs N times (default 5) per package, the
# order of the tools alternating from round to round; the medians are compared. The last line
# is the summary.
set -euo pipefail
calc() { awk "BEGIN { print $1 }"; }
median() { tr ' ' '\n' | sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
build=${BRISA_HOST_BUILD:?BRISA_HOST_BUILD names the host build tree}
size=1073741824
runs=5
while [ $# -gt 0 ]; do
    case "$1" in
        --size) size=${2:?--size needs a byte count}; shift 2 ;;
        --runs) runs=${2:?--runs needs a count}; shift 2 ;;
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

run_tool() { # tool zip target; prints its wall seconds, timed from outside, process start included
    local tool=$1 zip=$2 target=$3 start end
    mkdir -p "$target"
    sync
    start=$(date +%s.%N)
    case "$tool" in
        ours) "$ours" "$zip" "$target/ours" >"$work/last.out" ;;
        unzip) unzip -q "$zip" -d "$target" >"$work/last.out" ;;
        bsdtar) bsdtar -xf "$zip" -C "$target" >"$work/last.out" ;;
    esac
    end=$(date +%s.%N)
    calc "$end - $start"
}

echo "load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
rss_kib=0
declare -A result
for kind in large small; do
    zip="$work/$kind.zip"
    declare -A seconds=([ours]="" [unzip]="" [bsdtar]="")
    for round in $(seq 1 "$runs"); do
        order="ours unzip bsdtar"
        [ $((round % 2)) -eq 0 ] && order="bsdtar unzip ours"
        for tool in $order; do
            target="$work/out/$kind-$round-$tool"
            s=$(run_tool "$tool" "$zip" "$target")
            seconds[$tool]+="$s "
            if [ "$tool" = ours ]; then
                rss=$(sed -n 's/.*rss_kib=\([0-9]*\).*/\1/p' "$work/last.out")
                [ "$rss" -gt "$rss_kib" ] && rss_kib=$rss
            fi
            # Large outputs go at once. Small ones stay until the package's last round: on
            # ext4, creating files just after thousands were deleted makes every creation scan
            # the deleted inodes, which would charge whichever tool runs next.
            [ "$kind" = large ] && rm -rf "$target"
        done
    done
    rm -rf "$work/out"
    declare -A mid
    for tool in ours unzip bsdtar; do
        mid[$tool]=$(median <<<"${seconds[$tool]% }")
        echo "$kind $tool: ${seconds[$tool]% } s, median ${mid[$tool]} s"
    done
    best=$(calc "(${mid[unzip]} < ${mid[bsdtar]}) ? ${mid[unzip]} : ${mid[bsdtar]}")
    echo "$kind: $(stat -c %s "$zip") bytes packed; ours ${mid[ours]}s, unzip ${mid[unzip]}s, bsdtar ${mid[bsdtar]}s (medians of $runs), ours peak RSS $((rss_kib / 1024)) MiB"
    result[$kind]=$(calc "$best / ${mid[ours]}")
    unset seconds mid
done
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
printf 'extract ratio_large=%.2f ratio_small=%.2f rss_mib=%d\n' "${result[large]}" "${result[small]}" $((rss_kib / 1024))
