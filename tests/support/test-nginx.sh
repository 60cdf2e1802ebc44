#!/usr/bin/env bash
# test-nginx.sh start <directory> <certificate directory> | stop <directory>
# Debian's nginx on 127.0.0.1 for test programs that cannot start it themselves (Windows tests
# under Wine): it serves <directory>/www over HTTPS and writes its port to <directory>/port.
set -euo pipefail
what=${1:?usage: test-nginx.sh start|stop <directory> [certificate directory]}
dir=${2:?missing directory}
if [ "$what" = stop ]; then
    [ -f "$dir/nginx.pid" ] && kill "$(cat "$dir/nginx.pid")" 2>/dev/null || true
    exit 0
fi
certs=${3:?missing certificate directory}
mkdir -p "$dir/www" "$dir/logs"
chmod 755 "$dir" "$dir/www"
[ -f "$dir/nginx.pid" ] && kill "$(cat "$dir/nginx.pid")" 2>/dev/null || true
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
cat > "$dir/nginx.conf" <<CONF
pid $dir/nginx.pid;
error_log $dir/logs/error.log;
worker_processes 1;
events { worker_connections 64; }
http {
    log_format ranges '\$request_uri \$http_range';
    access_log $dir/logs/access.log ranges;
    client_body_temp_path $dir/logs; proxy_temp_path $dir/logs; fastcgi_temp_path $dir/logs;
    uwsgi_temp_path $dir/logs; scgi_temp_path $dir/logs;
    types { application/json json; }
    server {
        listen 127.0.0.1:$port ssl;
        ssl_certificate $certs/server.pem;
        ssl_certificate_key $certs/server.key;
        root $dir/www;
    }
}
CONF
nginx -e "$dir/logs/error.log" -p "$dir" -c "$dir/nginx.conf"
echo "$port" > "$dir/port"
