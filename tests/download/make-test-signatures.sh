#!/usr/bin/env bash
# Signature test material, made on the host with the build tree's throwaway keys (Windows tests
# under Wine cannot run openssl): a manifest, its signature by the current key, by the next key,
# by a key no build accepts, and a current-key signature of other bytes.
set -euo pipefail
out=$1 keys=$2
sign=$(dirname "$0")/../../tools/sign-manifest
mkdir -p "$out"
printf '{"schemaVersion":1,"version":"1.5.0"}' > "$out/manifest.json"
printf '{"schemaVersion":1,"version":"9.9.9"}' > "$out/other.json"
for case in current:manifest-key next:manifest-key-next stranger:stranger-key; do
    "$sign" --key "$keys/${case#*:}.pem" "$out/manifest.json"
    mv "$out/manifest.json.sig" "$out/${case%%:*}.sig"
done
"$sign" --key "$keys/manifest-key.pem" "$out/other.json"
mv "$out/other.json.sig" "$out/other-bytes.sig"
