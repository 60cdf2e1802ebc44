#!/usr/bin/env bash
# make-test-signatures.sh <out> <key directory> <nginx directory>
# Signature test material, made on the host with the build tree's throwaway keys (Windows tests
# under Wine cannot run openssl): a package of seven download chunks that the test nginx serves
# under /signed/, the manifest naming it, the manifest's signature by the current key, by the next
# key and by a key no build accepts, and a current-key signature of other bytes.
set -euo pipefail
out=$1 keys=$2 nginx=$3
sign=$(dirname "$0")/../../tools/sign-manifest
mkdir -p "$out" "$nginx/www/signed"
size=$((6 * 8388608 + 777))
head -c $size /dev/urandom > "$nginx/www/signed/package.zip"
chmod 755 "$nginx/www/signed"
url="https://127.0.0.1:$(cat "$nginx/port")/signed"
printf '{"schemaVersion":1,"version":"1.5.0","releaseId":"","package":{"url":"%s","fileName":"package.zip","size":%s,"uncompressedSize":%s,"sha256":"%s"},"fullPackage":{"url":"%s","fileName":"full.zip"}}' \
    "$url/package.zip" $size $size "$(sha256sum "$nginx/www/signed/package.zip" | cut -d' ' -f1)" "$url/full.zip" > "$out/manifest.json"
printf '{"schemaVersion":1,"version":"9.9.9"}' > "$out/other.json"
for case in current:manifest-key next:manifest-key-next stranger:stranger-key; do
    "$sign" --key "$keys/${case#*:}.pem" "$out/manifest.json"
    mv "$out/manifest.json.sig" "$out/${case%%:*}.sig"
done
"$sign" --key "$keys/manifest-key.pem" "$out/other.json"
mv "$out/other.json.sig" "$out/other-bytes.sig"
