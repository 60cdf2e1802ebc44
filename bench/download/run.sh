#!/usr/bin/env bash
# tools/bench download [--size BYTES] [--wine]: a random package (default 1 GiB) served by a local
# nginx over HTTPS with a throwaway CA, fetched by our DownloadManager, by curl and by aria2c in the
# same run; our verification is timed against sha256sum. Every tool runs five times (BRISA_BENCH_RUNS)
# in alternating order and the medians are compared. The last line is the summary.
# --wine instead fetches it through the Windows build (Schannel, CNG) under Wine, next to curl on
# the host; the Windows build tree is build/windows beside the host one (BRISA_WINDOWS_BUILD).
set -euo pipefail
calc() { awk "BEGIN { print $1 }"; }
build=${BRISA_HOST_BUILD:?BRISA_HOST_BUILD names the host build tree}
size=1073741824
wine=
while [ $# -gt 0 ]; do
    case "$1" in
        --size) size=${2:?--size needs a byte count}; shift 2 ;;
        --wine) wine=1; shift ;;
        *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
cmake --build "$build" --target bench_download >/dev/null
if [ -n "$wine" ]; then
    windows_build=${BRISA_WINDOWS_BUILD:-$(dirname "$build")/windows}
    cmake --build "$windows_build" --target bench_download >/dev/null
    export BRISA_WINEPREFIX="$windows_build/wineprefix"
    wine_run=$(dirname "$0")/../../cmake/wine-run.sh
    "$wine_run" --up >/dev/null
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/brisa-bench-download.XXXXXX")
chmod 755 "$work"
nginx_pid=
cleanup() {
    [ -n "$nginx_pid" ] && kill "$nginx_pid" 2>/dev/null && wait "$nginx_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# Throwaway CA and a server certificate for 127.0.0.1, made as the tests make theirs.
"$(dirname "$0")/../../tests/support/make-test-certificates.sh" "$work"

manifest_path=bl-desktop/prod/brisalinker/installer/win
mkdir -p "$work/www/$manifest_path" "$work/www/pkg" "$work/logs"
head -c "$size" /dev/urandom > "$work/www/pkg/package.zip"
sync

digest=$(sha256sum "$work/www/pkg/package.zip" | cut -d' ' -f1)

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
cat > "$work/www/$manifest_path/manifest.json" <<JSON
{"schemaVersion":1,"version":"9.9.9","releaseId":"bench",
 "package":{"url":"https://127.0.0.1:$port/pkg/package.zip","fileName":"package.zip","size":$size,
            "uncompressedSize":$size,"sha256":"$digest"},
 "fullPackage":{"url":"https://127.0.0.1:$port/pkg/package.zip","fileName":"package.zip"}}
JSON
# Signed with the build tree's throwaway key, which the build accepts (the Windows one's with --wine).
"$(dirname "$0")/../../tools/sign-manifest" --key "${windows_build:-$build}/signing/manifest-key.pem" "$work/www/$manifest_path/manifest.json"
cat > "$work/nginx.conf" <<CONF
daemon off;
worker_processes 2;
pid $work/nginx.pid;
error_log $work/logs/error.log;
events { worker_connections 256; }
http {
    access_log off;
    sendfile on;
    client_body_temp_path $work/logs;
    proxy_temp_path $work/logs;
    fastcgi_temp_path $work/logs;
    uwsgi_temp_path $work/logs;
    scgi_temp_path $work/logs;
    types { application/json json; application/zip zip; }
    server {
        listen 127.0.0.1:$port ssl;
        ssl_certificate $work/server.pem;
        ssl_certificate_key $work/server.key;
        root $work/www;
    }
}
CONF
nginx -e "$work/logs/error.log" -p "$work" -c "$work/nginx.conf" &
nginx_pid=$!
for _ in $(seq 50); do
    curl -s --cacert "$work/ca.pem" -o /dev/null "https://127.0.0.1:$port/$manifest_path/manifest.json" && break
    sleep 0.1
done

seconds() { # runs a command and prints its wall time in seconds
    local begin end
    begin=$(date +%s.%N)
    "$@" >/dev/null 2>&1
    end=$(date +%s.%N)
    calc "$end - $begin"
}
median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
package_url="https://127.0.0.1:$port/pkg/package.zip"
run_curl() {
    curl_s+=("$(seconds curl -s --fail --cacert "$work/ca.pem" -o "$work/curl.zip" "$package_url")")
    rm -f "$work/curl.zip"
}
run_aria() {
    aria_s+=("$(seconds aria2c -q -x6 -s6 -k8M --ca-certificate="$work/ca.pem" --allow-overwrite=true \
        --file-allocation=none -d "$work" -o aria.zip "$package_url")")
    rm -f "$work/aria.zip"
}
run_sha() {
    sha_s+=("$(seconds sha256sum "$work/www/pkg/package.zip")")
}
run_ours() {
    local line
    rm -rf "$work/cache"
    line=$("$build/bench/download/bench_download" "https://127.0.0.1:$port/$manifest_path/manifest.json" \
        "$work/cache" "$work/ca.pem")
    received_s+=("$(sed -n 's/.*received_s=\([0-9.]*\).*/\1/p' <<<"$line")")
    verify_s+=("$(sed -n 's/.*verify_s=\([0-9.]*\).*/\1/p' <<<"$line")")
    rss_kib+=("$(sed -n 's/.*rss_kib=\([0-9]*\).*/\1/p' <<<"$line")")
    rm -rf "$work/cache"
}
run_wine() {
    local line
    rm -rf "$work/cache"
    line=$("$wine_run" --plain "$windows_build/bench/download/bench_download.exe" \
        "https://127.0.0.1:$port/$manifest_path/manifest.json" "Z:$work/cache" "Z:$work/ca.pem" 2>/dev/null | tr -d '\r')
    received_s+=("$(sed -n 's/.*received_s=\([0-9.]*\).*/\1/p' <<<"$line")")
    verify_s+=("$(sed -n 's/.*verify_s=\([0-9.]*\).*/\1/p' <<<"$line")")
    rss_kib+=("$(sed -n 's/.*rss_kib=\([0-9]*\).*/\1/p' <<<"$line")")
    rm -rf "$work/cache"
}

if [ -n "$wine" ]; then
    runs=${BRISA_BENCH_RUNS:-5}
    curl_s=() received_s=() verify_s=() rss_kib=()
    for run in $(seq "$runs"); do
        if [ $((run % 2)) -eq 1 ]; then run_curl; run_wine; else run_wine; run_curl; fi
    done
    curl_m=$(median "${curl_s[@]}") received_m=$(median "${received_s[@]}") verify_m=$(median "${verify_s[@]}")
    printf 'cores=%s size=%s bytes runs=%s load=%s\n' "$(nproc)" "$size" "$runs" "$(cut -d' ' -f1-3 /proc/loadavg)"
    printf 'curl        runs: %s\n' "${curl_s[*]}"
    printf 'ours (Wine) runs: %s (to the last byte)\n' "${received_s[*]}"
    printf 'ours (Wine) verification after the last byte, runs: %s\n' "${verify_s[*]}"
    printf 'wine download ratio=%.2f verify_s=%.3f rss_mib=%.1f\n' "$(calc "$curl_m / $received_m")" "$verify_m" \
        "$(calc "$(printf '%s\n' "${rss_kib[@]}" | sort -n | tail -1) / 1024")"
    exit 0
fi

# Five runs of every tool, the order reversed every other run, so that neither a warm cache nor
# a neighbour's load favours one tool; medians decide.
runs=${BRISA_BENCH_RUNS:-5}
curl_s=() aria_s=() sha_s=() received_s=() verify_s=() rss_kib=()
for run in $(seq "$runs"); do
    if [ $((run % 2)) -eq 1 ]; then
        run_curl; run_aria; run_sha; run_ours
    else
        run_ours; run_sha; run_aria; run_curl
    fi
done

mib=$(calc "$size / 1048576")
curl_m=$(median "${curl_s[@]}") aria_m=$(median "${aria_s[@]}") sha_m=$(median "${sha_s[@]}")
received_m=$(median "${received_s[@]}") verify_m=$(median "${verify_s[@]}")
rss_max=$(printf '%s\n' "${rss_kib[@]}" | sort -n | tail -1)
printf 'cores=%s size=%s bytes runs=%s load=%s\n' "$(nproc)" "$size" "$runs" "$(cut -d' ' -f1-3 /proc/loadavg)"
printf 'curl       runs: %s\n' "${curl_s[*]}"
printf 'aria2c -x6 runs: %s\n' "${aria_s[*]}"
printf 'ours       runs: %s (to the last byte)\n' "${received_s[*]}"
printf 'sha256sum  runs: %s\n' "${sha_s[*]}"
printf 'ours verification after the last byte, runs: %s\n' "${verify_s[*]}"
printf 'curl       %7.3f s  %8.1f MiB/s (median)\n' "$curl_m" "$(calc "$mib / $curl_m")"
printf 'aria2c -x6 %7.3f s  %8.1f MiB/s (median)\n' "$aria_m" "$(calc "$mib / $aria_m")"
printf 'ours       %7.3f s  %8.1f MiB/s (median, to the last byte)\n' "$received_m" "$(calc "$mib / $received_m")"
printf 'sha256sum  %7.3f s; our verification after the last byte %.3f s (medians)\n' "$sha_m" "$verify_m"
best=$(calc "($curl_m < $aria_m) ? $curl_m : $aria_m")
download_ratio=$(calc "$best / $received_m")
verify_ratio=$(calc "$sha_m / (($verify_m > 0.001) ? $verify_m : 0.001)")
printf 'download ratio=%.2f verify ratio=%.2f rss_mib=%.1f\n' "$download_ratio" "$verify_ratio" "$(calc "$rss_max / 1024")"
