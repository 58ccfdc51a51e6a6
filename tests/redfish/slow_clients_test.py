#!/usr/bin/python3
"""Slow and idle clients against `aimctl serve`, all on loopback, bounded in time.

Ingests examples/aim/server-2u.xml into a fresh database, serves it, and then (one mode per run):
  --slow   500 connections each send a request line and then one header byte every 2 s;
  --idle   500 connections that never send a byte; afterwards, connections past the server's
           cap (1 024) are closed at once while those below it stay open.
Meanwhile a well-behaved client asks for /redfish/v1 ten times a second for 20 s on one
kept-alive connection: every request must be answered, the 99th percentile under 100 ms. With
--slow every slow connection must be closed by the server within 20 s of its first byte. The
server's resident memory must stay under 64 MiB (--rss-limit); a server built with
AddressSanitizer, whose own shadow and quarantine take some 60 MiB before any connection, is held
to the same 64 MiB over its memory after a first request instead (and runs with a quarantine of
8 MiB, which TLS's allocations would otherwise fill to its 256 MiB). Prints '1 passed, 0 failed' or
the failures. With --tls all of it goes over HTTPS (a certificate made for the test): each slow or
idle connection completes its TLS handshake first, and a slow one then sends each header byte in
a TLS record of its own.
"""
import argparse, http.client, os, resource, selectors, socket, ssl, sys, tempfile, threading, time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from clients_test import UNCHECKED, Service, check, failures, ingest_example, make_certificate, verdict  # noqa: E402

CONNECTIONS = 500
SECONDS = 20


def rss_kib(pid):
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def connection(port, tls):
    if tls:
        return http.client.HTTPSConnection("127.0.0.1", port, timeout=5, context=UNCHECKED)
    return http.client.HTTPConnection("127.0.0.1", port, timeout=5)


def good_client(port, tls, latencies, errors, stop_at):
    """GET /redfish/v1 ten times a second on one kept-alive connection until stop_at."""
    conn = connection(port, tls)
    next_at = time.monotonic()
    while time.monotonic() < stop_at:
        t0 = time.monotonic()
        try:
            conn.request("GET", "/redfish/v1")
            r = conn.getresponse()
            body = r.read()
            if r.status != 200 or b"RootService" not in body:
                errors.append("answered %d" % r.status)
        except (OSError, http.client.HTTPException) as e:
            errors.append("%s: %s" % (type(e).__name__, e))
            conn.close()
            conn = connection(port, tls)
        latencies.append(time.monotonic() - t0)
        next_at += 0.1
        time.sleep(max(0.0, next_at - time.monotonic()))
    conn.close()


def connect_all(port, n, tls=False):
    """`n` connections, each past its TLS handshake with `tls`."""
    out = []
    for _ in range(n):
        s = socket.create_connection(("127.0.0.1", port), timeout=5)
        if tls:
            s = UNCHECKED.wrap_socket(s, server_hostname="127.0.0.1")
        s.setblocking(False)
        out.append(s)
    return out


def closed_by_server(s):
    """True when the server has closed `s` (end of stream or reset)."""
    try:
        while s.recv(65536):
            pass
        return True
    except (BlockingIOError, ssl.SSLWantReadError):
        return False
    except OSError:
        return True


def watch(svc, socks, slow, seconds, rss):
    """Drives the slow or idle connections for `seconds`; the time each was closed (or None)."""
    sel = selectors.DefaultSelector()
    first_byte, closed = {}, {}
    start = time.monotonic()
    for i, s in enumerate(socks):
        sel.register(s, selectors.EVENT_READ, i)
        if slow:
            s.send(b"GET /redfish/v1 HTTP/1.1\r\n")
            first_byte[i] = time.monotonic()
    next_byte = start + 2
    while time.monotonic() - start < seconds:
        for key, _ in sel.select(timeout=0.2):
            i = key.data
            if closed_by_server(socks[i]):
                closed[i] = time.monotonic()
                sel.unregister(socks[i])
        if slow and time.monotonic() >= next_byte:
            next_byte += 2
            for i, s in enumerate(socks):
                if i not in closed:
                    try:
                        s.send(b"X")
                    except (BlockingIOError, ssl.SSLWantWriteError):
                        pass
                    except OSError:
                        closed[i] = time.monotonic()
                        sel.unregister(s)
        rss.append(rss_kib(svc.proc.pid))
    sel.close()
    return first_byte, closed


def cap_check(svc, port, held):
    """Past the cap (read from the server's standard error), new connections close at once."""
    cap = 1024
    need = cap + 20 - len(held)
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft < cap + 200:
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, cap + 200), hard))
    extra = connect_all(port, need)
    time.sleep(1.0)
    socks = held + extra
    dropped = sum(1 for s in socks if closed_by_server(s))
    check(dropped == len(socks) - cap, "with %d connections the server closed %d, not %d"
          % (len(socks), dropped, len(socks) - cap))
    for s in extra:
        s.close()


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--aimctl", required=True)
    ap.add_argument("--source-dir", required=True)
    mode = ap.add_mutually_exclusive_group(required=True)
    mode.add_argument("--slow", action="store_true")
    mode.add_argument("--idle", action="store_true")
    ap.add_argument("--rss-limit", type=int, default=64, help="MiB")
    ap.add_argument("--tls", action="store_true")
    a = ap.parse_args()
    # A server built with AddressSanitizer keeps what is freed in its quarantine, up to 256 MiB,
    # which the TLS handshakes' allocations soon fill: a small one leaves the server's own use.
    os.environ["ASAN_OPTIONS"] = ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), "quarantine_size_mb=8"]))
    with tempfile.TemporaryDirectory(prefix="aim-slow.") as tmp:
        db = os.path.join(tmp, "inventory.db")
        ingest_example(a.aimctl, a.source_dir, "server-2u", db)
        svc = Service(a.aimctl, db, make_certificate(tmp) if a.tls else None)
        try:
            svc.get("/redfish/v1")
            with open("/proc/%d/maps" % svc.proc.pid) as f:
                sanitized = "libasan" in f.read()
            base = rss_kib(svc.proc.pid) / 1024.0 if sanitized else 0.0
            socks = connect_all(svc.port, CONNECTIONS, a.tls)
            latencies, errors, rss = [], [], []
            client = threading.Thread(target=good_client,
                                      args=(svc.port, a.tls, latencies, errors, time.monotonic() + SECONDS))
            client.start()
            first_byte, closed = watch(svc, socks, a.slow, SECONDS + 1, rss)
            client.join()

            check(not errors, "the well-behaved client: %d of %d requests failed: %s"
                  % (len(errors), len(latencies), errors[:3]))
            check(len(latencies) >= SECONDS * 10 * 0.9, "the well-behaved client made %d requests" % len(latencies))
            lat = sorted(latencies)
            p50, p99 = lat[len(lat) // 2], lat[min(len(lat) - 1, int(len(lat) * 0.99))]
            check(p99 < 0.1, "the well-behaved client's p99 is %.1f ms" % (p99 * 1000))
            peak = max(rss) / 1024.0
            check(peak - base < a.rss_limit, "the server's RSS reached %.1f MiB (from %.1f MiB)" % (peak, base))
            if a.slow:
                late = [i for i in range(len(socks)) if i not in closed or closed[i] - first_byte[i] > 20]
                check(not late, "%d slow connections were not closed within 20 s" % len(late))
                spans = [closed[i] - first_byte[i] for i in closed]
                print("slow: %d connections closed after %.1f to %.1f s" % (len(closed), min(spans), max(spans)))
            else:
                check(not closed, "%d idle connections were closed within %d s" % (len(closed), SECONDS))
                cap_check(svc, svc.port, socks)
            print("well-behaved client: %d requests, p50 %.2f ms, p99 %.2f ms; server RSS at most %.1f MiB%s"
                  % (len(lat), p50 * 1000, p99 * 1000, peak, " (%.1f MiB before the connections)" % base if base else ""))
            for s in socks:
                s.close()
            status, _, _ = svc.get("/redfish/v1")
            check(status == 200, "afterwards /redfish/v1 answers %s" % status)
        finally:
            svc.stop()
    return verdict()


if __name__ == "__main__":
    sys.exit(main())
