#!/usr/bin/python3
"""Writes the seed corpora of the Redfish fuzz targets from the example machines:
fuzz/corpus/redfish_db/MACHINE (the rows of the tables the service reads, one per line, as the
target decodes them) and fuzz/corpus/http_request/MACHINE (a GET of every resource the crawl
reaches, up to 40, pipelined on one connection), plus a few hand-made requests.

usage: fuzz/make_redfish_seeds.py AIMCTL   (serves on a free loopback port for the crawl)
"""
import json, os, sqlite3, subprocess, sys, tempfile, urllib.request

src = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
aimctl = sys.argv[1]
tables = ["PCIs","PCIAdapter","PCIMisc","VPDs","Firmwares","PCINetwork","PCIPhysicalPort","PCIPhysicalPortStat","PCILogicalPort","PCIGPU","PCIGPUChip","AimDisks","PldmDeviceFirmware"]
for m in sorted(d for d in os.listdir(src + "/examples/machines") if os.path.isdir(src + "/examples/machines/" + d)):
    with tempfile.TemporaryDirectory() as t:
        db = t + "/i.db"
        subprocess.run([aimctl, "--log-level", "err", "ingest", "--db", db, "--machine", src + "/examples/machines/" + m, src + "/examples/aim/" + m + ".xml"], check=True, capture_output=True)
        con = sqlite3.connect(db)
        lines = []
        for tb in tables:
            cur = con.execute('SELECT * FROM "%s" ORDER BY _id' % tb)
            cols = [d[0] for d in cur.description]
            for row in cur:
                f = [tb]
                for c, v in zip(cols, row):
                    if c == "_id": continue
                    if v is None: continue
                    if isinstance(v, bytes): v = v.decode("latin-1")
                    f.append("%s=%s" % (c, str(v).replace("\t", " ").replace("\n", " ")))
                lines.append("\t".join(f))
        open(src + "/fuzz/corpus/redfish_db/" + m, "w").write("\n".join(lines) + "\n")
        # http_request: every resource of the machine, pipelined on one connection, HEAD for the last
        p = subprocess.Popen([aimctl, "serve", "--db", db, "--port", "0"], stdout=subprocess.PIPE, text=True)
        port = p.stdout.readline().strip().rsplit(":", 1)[1]
        seen, queue = set(), ["/redfish/v1"]
        while queue:
            u = queue.pop()
            if u in seen: continue
            seen.add(u)
            j = json.load(urllib.request.urlopen("http://127.0.0.1:%s%s" % (port, u)))
            stack = [j]
            while stack:
                v = stack.pop()
                if isinstance(v, dict):
                    for k, x in v.items():
                        if k == "@odata.id" and isinstance(x, str): queue.append(x)
                        stack.append(x)
                elif isinstance(v, list): stack.extend(v)
        p.terminate(); p.wait()
        reqs = "".join("GET %s HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" % u for u in sorted(seen)[:40])
        open(src + "/fuzz/corpus/http_request/" + m, "w").write(reqs)
hand = {
 "head-and-page": "HEAD /redfish/v1/Systems/system HTTP/1.1\r\nHost: x\r\n\r\nGET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n",
 "http10": "GET /redfish/v1 HTTP/1.0\r\n\r\n",
 "post-body": "POST /redfish/v1/SessionService/Sessions HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\nContent-Length: 37\r\n\r\n{\"UserName\":\"a\",\"Password\":\"secret\"}",
 "chunked": "GET /redfish/v1 HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n",
 "escapes": "GET /redfish/v1/%2e%2e/x HTTP/1.1\r\n\r\nGET /redfish/v1/Systems/system/PCIeDevices/?$expand=. HTTP/1.1\r\n\r\nGET /redfish/v1/%C0%AF HTTP/1.1\r\n\r\n",
 "delete-then-get": "DELETE /redfish/v1/Systems/system HTTP/1.1\r\nHost: x\r\n\r\nGET /redfish HTTP/1.1\r\nHost: x\r\n\r\n",
}
for k, v in hand.items():
    open(src + "/fuzz/corpus/http_request/" + k, "w").write(v)
