#!/usr/bin/env bash
# The Redfish server side by side with a static file server, in one run, on loopback.
#
# Ingests the example machine ubb-8gpu, writes its DMTF mockup (`aimctl redfish --mockup`) and
# serves the same resources twice: with `aimctl serve`, and as static files with Debian's nginx
# (index.json as index, application/json). Then, for one PCIe device of the machine, on each
# server in turn:
#   wrk -t2 -c50 -d10s --latency   (kept-alive connections)
#   ab -n 5000 -c 50               (a new connection per request)
#   the median of 1000 GETs on one kept-alive connection (python3's http.client)
# The same again over HTTPS, both servers with one certificate made for the run (ECDSA P-256,
# TLS 1.2 and 1.3). It prints one table (requests/s, p50 and p99 latency, ratio to nginx),
# which it also writes between the "bench-http" markers of docs/benchmark.md and README.md.
# nginx is started on its own configuration and stopped by its own pids (master, then any
# worker left).
#
# usage: scripts/bench-http.sh BUILD [--no-docs]
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
docs=1
[ "${2:-}" = "--no-docs" ] && docs=0
aimctl=$build/bin/aimctl
work=$build/bench-http
rm -rf "$work" && mkdir -p "$work/nginx" "$work/mockup"
machine=ubb-8gpu

nginx_pid= serve_pid= tls_serve_pid=
stop_all() {
    for pid in $serve_pid $tls_serve_pid; do kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true; done
    if [ -n "$nginx_pid" ]; then
        workers=$(pgrep -P "$nginx_pid" || true)
        kill -TERM "$nginx_pid" 2>/dev/null || true
        for _ in $(seq 50); do kill -0 "$nginx_pid" 2>/dev/null || break; sleep 0.1; done
        for w in $workers; do kill -TERM "$w" 2>/dev/null || true; done
    fi
}
trap stop_all EXIT

"$aimctl" --log-level err ingest --db "$work/$machine.db" --machine "$src/examples/machines/$machine" \
    "$src/examples/aim/$machine.xml" >/dev/null
"$aimctl" redfish --db "$work/$machine.db" --mockup "$work/mockup" >/dev/null
device=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["Members"][0]["@odata.id"])' \
    "$work/mockup/redfish/v1/Chassis/chassis/PCIeDevices/index.json")

# Free loopback ports for nginx (the kernel's picks, released just before nginx takes them).
read -r nginx_port nginx_tls_port < <(python3 -c '
import socket
s, t = socket.socket(), socket.socket()
s.bind(("127.0.0.1", 0)); t.bind(("127.0.0.1", 0))
print(s.getsockname()[1], t.getsockname()[1])')
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj /CN=127.0.0.1 \
    -keyout "$work/server.key" -out "$work/server.crt" 2>/dev/null
cat >"$work/nginx/nginx.conf" <<EOF
worker_processes auto;
daemon off;
pid $work/nginx/nginx.pid;
error_log $work/nginx/error.log;
events { worker_connections 1024; }
http {
    access_log off;
    client_body_temp_path $work/nginx/body;
    proxy_temp_path $work/nginx/proxy;
    fastcgi_temp_path $work/nginx/fastcgi;
    uwsgi_temp_path $work/nginx/uwsgi;
    scgi_temp_path $work/nginx/scgi;
    default_type application/json;
    keepalive_requests 1000000;
    server {
        listen 127.0.0.1:$nginx_port;
        root $work/mockup;
        location / { try_files \$uri/index.json \$uri =404; }
    }
    server {
        listen 127.0.0.1:$nginx_tls_port ssl;
        ssl_certificate $work/server.crt;
        ssl_certificate_key $work/server.key;
        ssl_protocols TLSv1.2 TLSv1.3;
        root $work/mockup;
        location / { try_files \$uri/index.json \$uri =404; }
    }
}
EOF
/usr/sbin/nginx -p "$work/nginx" -c "$work/nginx/nginx.conf" &
nginx_pid=$!
"$aimctl" serve --db "$work/$machine.db" --port 0 >"$work/serve.log" 2>&1 &
serve_pid=$!
"$aimctl" serve --db "$work/$machine.db" --port 0 --tls-cert "$work/server.crt" --tls-key "$work/server.key" \
    >"$work/serve-tls.log" 2>&1 &
tls_serve_pid=$!
serve_port= tls_serve_port=
for _ in $(seq 100); do
    serve_port=$(sed -n '1s#^listening on http://127.0.0.1:\([0-9]*\)$#\1#p' "$work/serve.log")
    tls_serve_port=$(sed -n '1s#^listening on https://127.0.0.1:\([0-9]*\)$#\1#p' "$work/serve-tls.log")
    [ -n "$serve_port" ] && [ -n "$tls_serve_port" ] && curl -sf -o /dev/null "http://127.0.0.1:$nginx_port$device" &&
        curl -sfk -o /dev/null "https://127.0.0.1:$nginx_tls_port$device" && break
    sleep 0.1
done
[ -n "$serve_port" ] && [ -n "$tls_serve_port" ] ||
    { echo "bench-http: aimctl serve did not start: $(cat "$work/serve.log" "$work/serve-tls.log")" >&2; exit 1; }
for pair in "http $serve_port $nginx_port" "https $tls_serve_port $nginx_tls_port"; do
    read -r scheme a b <<<"$pair"
    cmp <(curl -sfk "$scheme://127.0.0.1:$a$device" | python3 -m json.tool) \
        <(curl -sfk "$scheme://127.0.0.1:$b$device" | python3 -m json.tool) >/dev/null ||
        { echo "bench-http: the two servers answer $device differently over $scheme" >&2; exit 1; }
done

# measure NAME SCHEME PORT: one line "NAME|wrk rps|wrk p50|wrk p99|ab rps|ab p50|ab p99|kept-alive median"
measure() {
    local url=$2://127.0.0.1:$3$device w a k
    w=$(wrk -t2 -c50 -d10s --latency "$url")
    a=$(ab -q -n 5000 -c 50 "$url")
    k=$(python3 - "$2" "$3" "$device" <<'EOF'
import http.client, ssl, statistics, sys, time
scheme, port, device = sys.argv[1], int(sys.argv[2]), sys.argv[3]
if scheme == "https":
    c = http.client.HTTPSConnection("127.0.0.1", port, context=ssl._create_unverified_context())
else:
    c = http.client.HTTPConnection("127.0.0.1", port)
times = []
for _ in range(1000):
    t = time.perf_counter()
    c.request("GET", device)
    r = c.getresponse()
    r.read()
    times.append(time.perf_counter() - t)
    assert r.status == 200
print("%.3f" % (statistics.median(times) * 1000))
EOF
)
    python3 - "$1" <<EOF
import re, sys
w, a = """$w""", """$a"""
def ms(v, unit):
    return float(v) * {"us": 0.001, "ms": 1, "s": 1000}[unit]
rps = float(re.search(r"Requests/sec:\s+([\d.]+)", w).group(1))
lat = {p: ms(*re.search(r"^\s+%s%%\s+([\d.]+)(us|ms|s)" % p, w, re.M).groups()) for p in ("50", "99")}
errors = re.search(r"Non-2xx or 3xx responses: (\d+)|Socket errors: (.*)", w)
ab_rps = float(re.search(r"Requests per second:\s+([\d.]+)", a).group(1))
ab_lat = {p: float(re.search(r"^\s+%s%%\s+(\d+)" % p, a, re.M).group(1)) for p in ("50", "99")}
failed = int(re.search(r"Failed requests:\s+(\d+)", a).group(1))
if errors or failed or "Non-2xx" in a:
    sys.exit("bench-http: %s answered errors under load" % sys.argv[1])
print("|".join([sys.argv[1], "%.0f" % rps, "%.2f" % lat["50"], "%.2f" % lat["99"], "%.0f" % ab_rps,
                "%.0f" % ab_lat["50"], "%.0f" % ab_lat["99"], "$k"]))
EOF
}

echo "bench-http: $device of $machine, aimctl serve on :$serve_port and :$tls_serve_port (TLS)," \
    "nginx on :$nginx_port and :$nginx_tls_port (TLS)" >&2
serve_line=$(measure "aimctl serve" http "$serve_port")
nginx_line=$(measure "nginx (static files)" http "$nginx_port")
tls_serve_line=$(measure "aimctl serve, HTTPS" https "$tls_serve_port")
tls_nginx_line=$(measure "nginx (static files), HTTPS" https "$nginx_tls_port")
stop_all
trap - EXIT

table=$(python3 - "$serve_line" "$nginx_line" "$tls_serve_line" "$tls_nginx_line" <<'EOF'
import sys
rows = [line.split("|") for line in sys.argv[1:5]]
out = ["| Server | keep-alive req/s (wrk) | p50 | p99 | new connection req/s (ab) | p50 | p99 | one kept-alive GET (median) |",
       "|---|---|---|---|---|---|---|---|"]
for s, n, label in ((rows[0], rows[1], "ratio aimctl / nginx"), (rows[2], rows[3], "ratio aimctl / nginx, HTTPS")):
    for r in (s, n):
        out.append("| %s | %s | %s ms | %s ms | %s | %s ms | %s ms | %s ms |" % tuple(r))
    out.append("| %s | %.2f | | | %.2f | | | |" % (label, float(s[1]) / float(n[1]), float(s[4]) / float(n[4])))
print("\n".join(out))
EOF
)
echo "$table"
if [ "$docs" = 1 ]; then
    header="One PCIe device of ubb-8gpu (\`$device\`), x86_64, $(nproc) cores, $(date -u +%Y-%m-%d); wrk -t2 -c50 -d10s, ab -n 5000 -c 50; HTTPS with one ECDSA P-256 certificate for both:"
    for f in "$src/docs/benchmark.md" "$src/README.md"; do
        python3 - "$f" "$header" "$table" <<'EOF'
import re, sys
path, header, table = sys.argv[1:4]
text = open(path).read()
block = "<!-- bench-http -->\n%s\n\n%s\n<!-- /bench-http -->" % (header, table)
new, n = re.subn(r"<!-- bench-http -->.*?<!-- /bench-http -->", lambda m: block, text, flags=re.S)
if n:
    open(path, "w").write(new)
EOF
    done
    echo "bench-http: table written to docs/benchmark.md and README.md" >&2
fi
