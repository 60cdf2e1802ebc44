#!/usr/bin/env bash
# make-test-certificates.sh <directory>: a throwaway CA and a server certificate for 127.0.0.1,
# for test programs that cannot run openssl themselves (Windows tests under Wine).
set -euo pipefail
dir=${1:?usage: make-test-certificates.sh <directory>}
mkdir -p "$dir"
cd "$dir"
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=Brisa Test CA" \
    -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign \
    -keyout ca.key -out ca.pem 2>/dev/null
openssl req -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 -keyout server.key -out server.csr 2>/dev/null
printf 'subjectAltName=IP:127.0.0.1,DNS:localhost\nbasicConstraints=CA:FALSE\nkeyUsage=digitalSignature,keyEncipherment\nextendedKeyUsage=serverAuth\n' > server.ext
openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile server.ext \
    -out server.pem 2>/dev/null
