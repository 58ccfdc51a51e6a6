#!/usr/bin/python3
"""The Redfish service of an example machine as real clients see it.

Ingests examples/aim/MACHINE.xml on the example machine into a fresh inventory database,
serves it with `aimctl serve --port 0`, and then:
  crawler     follows every link from /redfish/v1: every resource answers 200 with
              application/json and OData-Version 4.0, names itself, has the members its kind
              requires, every collection counts its members; every row of the adapter tables
              stands whole (its Oem.AIM object) in some resource, and in a resource of its own
              device; for the machines of expected.json (written from the example files, not
              from the service), the counts and exact values listed there;
  redfishtool reads Systems, Systems Processors, Chassis and raw GETs of a PCIe device, a
              drive and a firmware entry (exit 0, the same JSON as the service);
  sushy       reads the system, its GPUs, storage drives, network adapters and firmware
              inventory, and the values match the database;
  read-only   no request changes the database; a new `aimctl ingest` shows without a restart;
  --load      2000 requests over 50 connections (ab) are all answered; prints requests/s;
  --hostile   overlong URIs and headers, ".." segments, non-UTF-8 bytes, a POST session login
              and many idle connections get error answers, and the server keeps serving;
  --tls       all of the above over HTTPS, with a certificate made for the test (redfishtool
              with -S Always, sushy and the crawler not checking it); a plain-HTTP request on
              the port and a TLS 1.1 handshake get no answer, a stalled handshake is closed
              after 15 s; certificate and key files that cannot be used exit 2; --tls alone
              serves a certificate made at start, whose fingerprint it prints;
  --users     (with --tls) all of the above with a users file made by `htpasswd -B`: the
              crawler and ab with HTTP Basic credentials, redfishtool and sushy with sessions
              (which they end); 401 without or with wrong credentials, lockout, a session's
              expiry (--session-timeout), and the bind rules (exit 2);
and stops the server with SIGTERM (exit 0). Prints '1 passed, 0 failed' or the failures.
"""
import argparse, base64, hashlib, json, os, re, signal, socket, sqlite3, ssl, subprocess, sys, tempfile, time
import urllib.error, urllib.request

# The test's certificate is its own: clients do not check it.
UNCHECKED = ssl.create_default_context()
UNCHECKED.check_hostname = False
UNCHECKED.verify_mode = ssl.CERT_NONE

HERE = os.path.dirname(os.path.abspath(__file__))
with open(os.path.join(HERE, "expected.json")) as f:
    EXPECTED = json.load(f)
TABLES = ["PCIAdapter", "VPDs", "Firmwares", "PldmDeviceFirmware", "PCIPhysicalPort", "PCILogicalPort",
          "PCIGPU", "PCIGPUChip", "AimDisks"]
# Resource kinds whose schema has no Id/Name/Status requirement of their own.
COLLECTION = re.compile(r"Collection\.")
failures = []


def fail(what):
    failures.append(what)
    print("FAIL " + what, flush=True)


def check(cond, what):
    if not cond:
        fail(what)
    return cond


def run(cmd, **kw):
    return subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120, **kw)


# The users file's accounts (name, password, role), made with htpasswd -B.
ACCOUNTS = [("admin", "admin pass", "Administrator"), ("operator", "op:pass", "Operator"),
            ("reader", "reader pass", None), ("lockme", "lock pass", None)]


def make_users(directory):
    path = os.path.join(directory, "users")
    for i, (name, password, role) in enumerate(ACCOUNTS):
        r = run(["htpasswd", "-b", "-B", "-C", "5"] + (["-c"] if i == 0 else []) + [path, name, password])
        if r.returncode != 0:
            raise SystemExit("htpasswd failed: " + r.stderr)
    with open(path) as f:
        lines = f.read().splitlines()
    with open(path, "w") as f:
        for line, (name, password, role) in zip(lines, ACCOUNTS):
            f.write(line + (":" + role if role else "") + "\n")
    return path


class Service:
    def __init__(self, aimctl, db, tls=None, users=None, extra=()):
        """`tls`: (certificate file, key file) to serve HTTPS; `users`: the users file, whose
        first account then reads the service."""
        self.tls = tls
        self.credentials = ACCOUNTS[0][:2] if users else None
        extra = list(extra) + (["--tls-cert", tls[0], "--tls-key", tls[1]] if tls else []) + \
            (["--users", users] if users else [])
        self.proc = subprocess.Popen([aimctl, "serve", "--db", db, "--port", "0"] + extra, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, text=True)
        line = self.proc.stdout.readline().strip()
        self.scheme = "https" if tls else "http"
        m = re.fullmatch(r"listening on %s://127\.0\.0\.1:(\d+)" % self.scheme, line)
        if not m:
            raise SystemExit("serve printed %r first" % line)
        self.port = int(m.group(1))
        self.base = "%s://127.0.0.1:%d" % (self.scheme, self.port)

    def get(self, uri, method="GET", headers=None, body=None, credentials="default"):
        """Status, headers and body of a request, with the service's credentials unless told
        otherwise (None: none)."""
        headers = dict(headers or {})
        credentials = self.credentials if credentials == "default" else credentials
        if credentials:
            headers["Authorization"] = "Basic " + base64.b64encode(("%s:%s" % credentials).encode()).decode()
        req = urllib.request.Request(self.base + uri, method=method, headers=headers,
                                     data=json.dumps(body).encode() if body is not None else None)
        try:
            with urllib.request.urlopen(req, timeout=20, context=UNCHECKED if self.tls else None) as r:
                return r.status, dict(r.headers), r.read()
        except urllib.error.HTTPError as e:
            return e.code, dict(e.headers), e.read()

    def stop(self):
        self.proc.send_signal(signal.SIGTERM)
        try:
            code = self.proc.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            code = "no exit within 10 s"
        check(code == 0, "serve stopped by SIGTERM exits %s, not 0" % code)
        err = self.proc.stderr.read()
        check("ERROR" not in err and "Sanitizer" not in err, "serve wrote to stderr: " + err[-2000:])


def ingest_example(aimctl, source_dir, machine, db):
    """`aimctl ingest` of the example machine's AIM file on its machine into `db`."""
    r = run([aimctl, "--log-level", "err", "ingest", "--db", db, "--machine",
             os.path.join(source_dir, "examples/machines", machine), os.path.join(source_dir, "examples/aim", machine + ".xml")])
    if r.returncode != 0:
        raise SystemExit("ingest of %s failed: %s" % (machine, r.stderr))


def verdict():
    """Prints the closing line of a run and returns its exit code."""
    print("%d passed, %d failed" % (0 if failures else 1, 1 if failures else 0))
    return 1 if failures else 0


def rows(db, table):
    con = sqlite3.connect("file:%s?mode=ro" % db, uri=True)
    con.row_factory = sqlite3.Row
    try:
        out = [dict(r) for r in con.execute('SELECT * FROM "%s" ORDER BY _id' % table)]
    finally:
        con.close()
    return [{k: v for k, v in r.items() if v is not None and v != "" and k != "_id"} for r in out]


def tables_digest(db):
    h = hashlib.sha256()
    for t in TABLES + ["PCIs", "PCIMisc", "PCINetwork", "PCIPhysicalPortStat"]:
        h.update(repr(rows(db, t)).encode())
    return h.hexdigest()


def members(obj):
    """Every value inside a JSON value, at any depth, with its member name (None in an array)."""
    pending = [obj]
    while pending:
        v = pending.pop()
        items = v.items() if isinstance(v, dict) else ((None, x) for x in v) if isinstance(v, list) else ()
        for k, x in items:
            yield k, x
            pending.append(x)


def links(obj, out):
    out.update(v for k, v in members(obj) if k == "@odata.id" and isinstance(v, str))


def oem_rows(obj, out):
    """Every object that stands in an Oem.AIM member, at any depth."""
    for k, v in members(obj):
        if k == "Oem" and isinstance(v, dict) and "AIM" in v:
            out.extend(x for _, x in members({"": v["AIM"]}) if isinstance(x, dict))


def crawl(svc, db):
    seen, queue, resources = set(), ["/redfish/v1"], {}
    while queue:
        uri = queue.pop(0)
        if uri in seen:
            continue
        seen.add(uri)
        status, headers, body = svc.get(uri)
        if not check(status == 200, "%s answers %s" % (uri, status)):
            continue
        check(headers.get("Content-Type") == "application/json", "%s: Content-Type %r" % (uri, headers.get("Content-Type")))
        check(headers.get("OData-Version") == "4.0", "%s: OData-Version %r" % (uri, headers.get("OData-Version")))
        js = json.loads(body)
        resources[uri] = js
        check(js.get("@odata.id") == uri, "%s names itself %r" % (uri, js.get("@odata.id")))
        t = js.get("@odata.type", "")
        check(re.fullmatch(r"#\w+(\.v\d+_\d+_\d+)?\.\w+", t), "%s: @odata.type %r" % (uri, t))
        check(js.get("Name"), "%s has no Name" % uri)
        if COLLECTION.search(t):
            check(js.get("Members@odata.count") == len(js.get("Members", [None])), "%s miscounts its Members" % uri)
        else:
            check(js.get("Id"), "%s has no Id" % uri)
            # (Types whose schema has no Status.)
            if not t.startswith(("#ServiceRoot.", "#JsonSchemaFile.", "#Role.", "#ManagerAccount.", "#Session.")):
                check(isinstance(js.get("Status"), dict) and js["Status"].get("State"), "%s has no Status.State" % uri)
        out = set()
        links(js, out)
        for u in sorted(out):
            check(u.startswith("/redfish/v1"), "%s links outside the service: %s" % (uri, u))
            if u not in seen:
                queue.append(u)
    # Every row of the adapter tables, whole, in some resource.
    objects = []
    oem_rows(resources, objects)
    for table in TABLES:
        for r in rows(db, table):
            check(r in objects, "a %s row shows in no resource: %s" % (table, r))
    return resources


def value_at(obj, path):
    """The value at a '/'-separated path of member names, or None."""
    for name in path.split("/"):
        if not isinstance(obj, dict) or name not in obj:
            return None
        obj = obj[name]
    return obj


def expectations(machine, resources):
    """The counts and exact values that expected.json gives for the machine."""
    exp = EXPECTED.get(machine)
    if not exp:
        return 0
    for uri, count in exp["counts"].items():
        got = resources.get(uri, {}).get("Members@odata.count")
        check(got == count, "%s counts %s members, expected %d" % (uri, got, count))
    drives = value_at(resources.get("/redfish/v1/Chassis/chassis", {}), "Links/Drives@odata.count")
    check(drives == exp["drives"], "the chassis links %s drives, expected %d" % (drives, exp["drives"]))
    for uri, values in exp["resources"].items():
        if not check(uri in resources, "expected resource %s was not reached" % uri):
            continue
        for path, want in values.items():
            got = value_at(resources[uri], path)
            check(got == want, "%s %s is %r, expected %r" % (uri, path, got, want))
    return len(exp["resources"])


def device_of(uri, resource):
    """The PCIe device URI that a resource belongs to, or None."""
    m = re.match(r"(/redfish/v1/Chassis/chassis/PCIeDevices/[^/]+)", uri)
    if m:
        return m.group(1)
    m = re.match(r"/redfish/v1/Chassis/chassis/NetworkAdapters/([^/]+)", uri)
    if m:
        return "/redfish/v1/Chassis/chassis/PCIeDevices/" + m.group(1)
    link = value_at(resource, "Links/PCIeDevice/@odata.id")  # a processor
    if link:
        return link
    functions = value_at(resource, "Links/PCIeFunctions") or []  # a drive
    if functions:
        return functions[0]["@odata.id"].split("/PCIeFunctions/")[0]
    return None


def rows_under_own_device(resources):
    """Every Oem.AIM row of a device's resource names that device: its address (segment, bus,
    device) where the row has one, and one of the device's keys where the row has a key."""
    keys, address = {}, {}
    for uri, r in resources.items():
        if re.fullmatch(r"/redfish/v1/Chassis/chassis/PCIeDevices/[^/]+", uri):
            rows = value_at(r, "Oem/AIM/PCIAdapter") or []
            keys[uri] = {x["PCIKey"] for x in rows if "PCIKey" in x}
            seg, bus, dev = uri.rsplit("/", 1)[1].split("_")[:3]
            address[uri] = (int(seg, 16), int(bus, 16), int(dev, 16))
    checked = 0
    for uri, r in resources.items():
        dev = device_of(uri, r)
        aim = value_at(r, "Oem/AIM")
        if not dev or not isinstance(aim, dict):
            continue
        for table, rows in aim.items():
            for row in rows if isinstance(rows, list) else [rows] if isinstance(rows, dict) else []:
                checked += 1
                if "PCIKey" in row:
                    check(row["PCIKey"] in keys.get(dev, ()), "%s: a %s row of PCIKey %s is not of %s"
                          % (uri, table, row["PCIKey"], dev))
                if "DevKey" in row:
                    check(row["DevKey"] in keys.get(dev, ()), "%s: a %s row of DevKey %s is not of %s"
                          % (uri, table, row["DevKey"], dev))
                if all(c in row for c in ("SegNo", "BusNo", "DeviceNo")) and table != "AimDisks":
                    check((row["SegNo"], row["BusNo"], row["DeviceNo"]) == address.get(dev),
                          "%s: a %s row at %s is not at %s" % (uri, table,
                                                              (row["SegNo"], row["BusNo"], row["DeviceNo"]), dev))
    return checked


def redfishtool(svc, resources, machine):
    tool = ["redfishtool", "-S", "Always" if svc.tls else "Never", "-r", "127.0.0.1:%d" % svc.port]
    # With a users file: redfishtool's session login (and logout at its end).
    tool += ["-A", "Session", "-u", svc.credentials[0], "-p", svc.credentials[1]] if svc.credentials else ["-A", "None"]
    picks = [["Systems"], ["Systems", "Processors"], ["Chassis"]]
    for kind in ["/PCIeDevices/", "/Drives/", "/FirmwareInventory/"]:
        uris = sorted(u for u in resources if kind in u and u.rsplit("/", 1)[0].endswith(kind.strip("/")))
        if uris:
            picks.append(["raw", "GET", uris[0]])
    expected = EXPECTED.get(machine, {}).get("resources", {})
    picks += [["raw", "GET", uri] for uri in expected]
    for args in picks:
        r = run(tool + args)
        if not check(r.returncode == 0, "redfishtool %s exits %d: %s" % (" ".join(args), r.returncode, r.stderr[-500:])):
            continue
        got = json.loads(r.stdout)
        uri = got.get("@odata.id")
        check(uri in resources and got == resources[uri], "redfishtool %s differs from the service" % " ".join(args))
        for path, want in expected.get(uri, {}).items():
            check(value_at(got, path) == want, "redfishtool %s: %s is %r, expected %r"
                  % (uri, path, value_at(got, path), want))
    return len(picks)


def sushy_reads(svc, db, machine):
    import sushy
    from sushy import auth
    from sushy import connector
    # The service root is read through the public connector, which checks certificates
    # unless it is given one that does not.
    public = connector.Connector(svc.base, verify=False) if svc.tls else None
    # With a users file: sushy's default, a session (Basic credentials only when that fails).
    login = auth.SessionOrBasicAuth(*svc.credentials) if svc.credentials else auth.BasicAuth("user", "password")
    root = sushy.Sushy(svc.base + "/redfish/v1", auth=login, verify=not svc.tls, public_connector=public)
    system = root.get_system("/redfish/v1/Systems/system")
    check(system.identity == "system", "sushy: system Id %r" % system.identity)

    # GPUs: one per chip row (or GPU row without chips), and the GPUs without AIM data that the
    # controller recognises on the system board.
    chips = rows(db, "PCIGPUChip")
    gpu_rows = [g for g in rows(db, "PCIGPU") if g["PCIFuncKey"] not in {c["PCIFuncKey"] for c in chips}]
    aim_keys = {r["PCIKey"] for r in chips + rows(db, "PCIGPU")}
    adapters = {r["PCIKey"] for r in rows(db, "PCIAdapter")}
    others = [f for f in rows(db, "PCIs") if f["DevKey"] in adapters and f["DevKey"] not in aim_keys and
              f.get("FunctionNo") == min(g.get("FunctionNo", 0) for g in rows(db, "PCIs") if g["DevKey"] == f["DevKey"])
              and f.get("Location") == 1 and ((f.get("VendorId"), f.get("FunType")) in
                                               {(0x10DE, 4), (0x1002, 4), (0x1002, 16), (0x17CB, 16)})]
    gpus = system.processors.get_members()
    check(len(gpus) == len(chips) + len(gpu_rows) + len(others),
          "sushy: %d GPUs, expected %d + %d + %d" % (len(gpus), len(chips), len(gpu_rows), len(others)))
    vpd_models = {v.get("Model") for v in rows(db, "VPDs")}
    chip_models = {c.get("GPUChipModel") for c in chips}
    for p in gpus:
        check(p.processor_type.value == "GPU", "sushy: %s is a %s" % (p.identity, p.processor_type))
        check(p.model in chip_models | vpd_models, "sushy: GPU %s model %r is in no row" % (p.identity, p.model))

    disks = rows(db, "AimDisks")
    drives = [d for s in system.storage.get_members() for d in s.drives]
    check(len(drives) == len(disks), "sushy: %d drives, %d AimDisks rows" % (len(drives), len(disks)))
    by_serial = {r.get("SerialNo"): r for r in disks}
    for d in drives:
        if d.serial_number:
            row = by_serial.get(d.serial_number)
            if check(row, "sushy: drive %s serial %s in no row" % (d.identity, d.serial_number)):
                check(d.model == row.get("Model"), "sushy: drive model %r, row %r" % (d.model, row.get("Model")))
                check(d.capacity_bytes == int(row["Capacity"]) if "Capacity" in row else d.capacity_bytes is None,
                      "sushy: drive capacity %r, row %r" % (d.capacity_bytes, row.get("Capacity")))

    chassis = root.get_chassis("/redfish/v1/Chassis/chassis")
    adapters = chassis.network_adapters.get_members()
    keys = {r["PCIKey"] for t in ("PCINetwork", "PCIPhysicalPort", "PCILogicalPort") for r in rows(db, t)}
    check(len(adapters) == len(keys), "sushy: %d network adapters, %d devices with network rows" % (len(adapters), len(keys)))
    logical = rows(db, "PCILogicalPort")
    check(sum(len(a.network_device_functions.get_members()) for a in adapters) == len(logical),
          "sushy: network device functions differ from PCILogicalPort")

    exp = EXPECTED.get(machine)
    if exp:
        check(len(gpus) == exp["counts"]["/redfish/v1/Systems/system/Processors"], "sushy: %d GPUs" % len(gpus))
        check(len(drives) == exp["drives"], "sushy: %d drives" % len(drives))
        for uri, values in exp["resources"].items():
            if "/Processors/" in uri:
                p = system.processors.get_member(uri)
                got = (p.json.get("SerialNumber"), p.model, p.manufacturer)  # sushy reads no serial itself
                check(got == (values["SerialNumber"], values["Model"], values["Manufacturer"]),
                      "sushy: GPU %s is %r" % (uri, got))
            if "/Drives/" in uri:
                d = [x for x in drives if x.path == uri]
                check(len(d) == 1 and (d[0].serial_number, d[0].capacity_bytes) ==
                      (values["SerialNumber"], values["CapacityBytes"]), "sushy: drive %s not as expected" % uri)
    inventory = root.get_update_service().firmware_inventory.get_members()
    versions = sorted(f.version or "" for f in inventory)
    expected = sorted((r.get("VersionString") if r.get("VersionString") not in (None, "", "N/A") else "")
                      for t in ("Firmwares", "PldmDeviceFirmware") for r in rows(db, t))
    check(versions == expected, "sushy: firmware versions %s, rows %s" % (versions, expected))
    if exp:
        check(len(inventory) == exp["counts"]["/redfish/v1/UpdateService/FirmwareInventory"],
              "sushy: %d firmware entries" % len(inventory))
    ids = {f.software_id for f in inventory if f.software_id}
    check(ids == {r["SoftwareID"] for t in ("Firmwares", "PldmDeviceFirmware") for r in rows(db, t)
                  if r.get("SoftwareID") not in (None, "", "N/A")}, "sushy: software ids differ")
    if svc.credentials:
        check(isinstance(login.get_session_key(), str) and len(login.get_session_key()) == 64,
              "sushy made no session")
        resource = login.get_session_resource_id()
        status, headers, body = svc.get(resource)
        check(status == 200 and json.loads(body)["UserName"] == svc.credentials[0],
              "sushy's session %s answers %s" % (resource, status))
        login.close()
        check(svc.get(resource)[0] == 404, "sushy's session outlived its close()")


def load(svc):
    basic = ["-A", "%s:%s" % svc.credentials] if svc.credentials else []
    r = run(["ab", "-q", "-n", "2000", "-c", "50"] + basic + [svc.base + "/redfish/v1/Systems/system"])
    if not check(r.returncode == 0, "ab exits %d: %s" % (r.returncode, r.stderr[-300:])):
        return
    field = lambda name: re.search(r"^%s:\s+([\d.]+)" % re.escape(name), r.stdout, re.M)
    check(field("Complete requests") and field("Complete requests").group(1) == "2000", "ab: not 2000 answered")
    check(field("Failed requests") and field("Failed requests").group(1) == "0", "ab: failed requests")
    check("Non-2xx responses" not in r.stdout, "ab: non-2xx answers")
    rps = field("Requests per second")
    print("load: 2000 requests over 50 connections, %s requests per second" % (rps.group(1) if rps else "?"))


def raw_request(port, data, timeout=10, tls=False):
    """The status line of the answer to raw request bytes ('' when the server closed)."""
    with socket.create_connection(("127.0.0.1", port), timeout=timeout) as plain:
        s = UNCHECKED.wrap_socket(plain, server_hostname="127.0.0.1") if tls else plain
        s.sendall(data)
        answer = b""
        try:
            while b"\r\n" not in answer:
                chunk = s.recv(4096)
                if not chunk:
                    break
                answer += chunk
        except socket.timeout:
            pass
    return answer.split(b"\r\n", 1)[0].decode("latin-1")


def hostile(svc):
    p = svc.port
    # With a users file, what needs credentials is refused for want of them first.
    locked = ("401",) if svc.credentials else None
    cases = [
        (b"GET /" + b"a" * 20000 + b" HTTP/1.1\r\nHost: x\r\n\r\n", ("414", "400")),
        (b"GET /redfish/v1 HTTP/1.1\r\nHost: x\r\nX-Big: " + b"b" * 20000 + b"\r\n\r\n", ("431", "400", "413")),
        (b"GET /redfish/v1/../../etc/passwd HTTP/1.1\r\nHost: x\r\n\r\n", ("400",)),
        (b"GET /redfish/v1/%2e%2e/%2e%2e/etc HTTP/1.1\r\nHost: x\r\n\r\n", ("400",)),
        (b"GET /redfish/v1/\xff\xfe HTTP/1.1\r\nHost: x\r\n\r\n", ("400",)),
        (b"GET /redfish/v1/%C3%28 HTTP/1.1\r\nHost: x\r\n\r\n", ("400",)),
        (b"GET /redfish/v1/%00 HTTP/1.1\r\nHost: x\r\n\r\n", ("400",)),
        (b"GET /redfish/v1/%C0%AF HTTP/1.1\r\nHost: x\r\n\r\n", ("400",)),
        (b"GET /redfish/v1/%ED%A0%80 HTTP/1.1\r\nHost: x\r\n\r\n", ("400",)),
        (b"POST /redfish/v1/SessionService/Sessions HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
         b"Content-Length: 36\r\n\r\n{\"UserName\":\"a\",\"Password\":\"secret\"}", locked or ("405",)),
        (b"DELETE /redfish/v1/Systems/system HTTP/1.1\r\nHost: x\r\n\r\n", locked or ("405",)),
        (b"BREW /redfish/v1 HTTP/1.1\r\nHost: x\r\n\r\n", ("405", "400")),
        (b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + bytes(range(32)) + b"\r\n\r\n", ("400", "")),
    ]
    for data, expected in cases:
        line = raw_request(p, data, tls=bool(svc.tls))
        code = line.split(" ")[1] if line.count(" ") >= 1 else ""
        check(code in expected, "hostile request %r answered %r" % (data[:60], line))
    # A second server on the port this one serves exits 1.
    r = run(svc.proc.args[:4] + ["--port", str(p)] + svc.proc.args[6:])
    check(r.returncode == 1 and "cannot listen" in r.stderr, "a second server on port %d exits %d: %s"
          % (p, r.returncode, r.stderr[-200:]))
    # Many connections at once, left idle, then closed: the server still answers.
    idle = []
    try:
        for _ in range(200):
            idle.append(socket.create_connection(("127.0.0.1", p), timeout=5))
    finally:
        for s in idle:
            s.close()
    status, headers, body = svc.get("/redfish/v1/Managers/bmc")
    check(status == 200, "after the hostile requests the service answers %s" % status)
    status, headers, body = svc.get("/redfish/v1/Managers/bmc", method="HEAD")
    check(status == 200 and body == b"", "HEAD answers %s with %d bytes" % (status, len(body)))
    status, headers, body = svc.get("/redfish/v1/NoSuchThing")
    check(status == 404 and json.loads(body)["error"]["@Message.ExtendedInfo"][0]["MessageArgs"] == ["/redfish/v1/NoSuchThing"],
          "an unknown URI answers %s %s" % (status, body[:200]))


def make_certificate(directory, name="server"):
    """A self-signed P-256 certificate for 127.0.0.1 and its key, made with openssl."""
    cert, key = os.path.join(directory, name + ".crt"), os.path.join(directory, name + ".key")
    r = run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
             "-days", "1", "-subj", "/CN=127.0.0.1", "-keyout", key, "-out", cert])
    if r.returncode != 0:
        raise SystemExit("openssl req failed: " + r.stderr)
    return cert, key


def tls_edges(svc, aimctl, db, tmp):
    """No answer to plain HTTP or TLS 1.1 on the TLS port; unusable certificate files exit 2."""
    line = raw_request(svc.port, b"GET /redfish/v1/Systems/system HTTP/1.1\r\nHost: x\r\n\r\n")
    check(line == "", "plain HTTP on the TLS port answered %r" % line)
    old = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    old.check_hostname, old.verify_mode = False, ssl.CERT_NONE
    old.minimum_version = ssl.TLSVersion.MINIMUM_SUPPORTED
    old.maximum_version = ssl.TLSVersion.TLSv1_1
    try:
        old.set_ciphers("ALL:@SECLEVEL=0")
        with socket.create_connection(("127.0.0.1", svc.port), timeout=10) as plain:
            with old.wrap_socket(plain, server_hostname="127.0.0.1") as s:
                fail("a TLS 1.1 handshake was accepted (%s)" % s.version())
    except (ssl.SSLError, OSError):
        pass
    # A handshake that never completes is closed with the header's 15 s (the watchdog sweeps
    # once a second).
    with socket.create_connection(("127.0.0.1", svc.port), timeout=30) as s:
        s.sendall(b"\x16\x03\x01\x02\x00")  # the start of a ClientHello record, and then nothing
        start = time.monotonic()
        try:
            closed = s.recv(1) == b""
        except (socket.timeout, ConnectionResetError):
            closed = False
        took = time.monotonic() - start
        check(closed and 14.5 <= took <= 17.5, "a stalled TLS handshake was closed after %.1f s (%s)"
              % (took, "closed" if closed else "not closed"))
    # --tls alone: a certificate made at start, whose fingerprint standard error gives.
    made = subprocess.Popen([aimctl, "serve", "--db", db, "--port", "0", "--tls"], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)
    try:
        m = re.fullmatch(r"listening on https://127\.0\.0\.1:(\d+)", made.stdout.readline().strip())
        said = made.stderr.readline() + made.stderr.readline()
        printed = re.search(r"self-signed certificate, SHA-256 fingerprint ((?:[0-9A-F]{2}:){31}[0-9A-F]{2})$", said, re.M)
        if check(m and printed, "serve --tls printed %r" % said):
            pem = ssl.get_server_certificate(("127.0.0.1", int(m.group(1))))
            served = hashlib.sha256(ssl.PEM_cert_to_DER_cert(pem)).hexdigest().upper()
            check(printed.group(1).replace(":", "") == served, "serve --tls: fingerprint %s, served %s"
                  % (printed.group(1), served))
            status = json.loads(urllib.request.urlopen("https://127.0.0.1:%s/redfish/v1" % m.group(1), timeout=20,
                                                       context=UNCHECKED).read())["Id"]
            check(status == "RootService", "serve --tls answers %r" % status)
    finally:
        made.send_signal(signal.SIGTERM)
        check(made.wait(timeout=10) == 0, "serve --tls stopped by SIGTERM exits %s" % made.returncode)
    other_key = make_certificate(tmp, "other")[1]
    cert, key = svc.tls
    for args, message in [
            (["--tls", "--tls-cert", cert, "--tls-key", key], "--tls makes its own certificate"),
            (["--tls-cert", cert], "--tls-cert and --tls-key go together"),
            (["--tls-cert", os.path.join(tmp, "none.crt"), "--tls-key", key], "cannot read"),
            (["--tls-cert", cert, "--tls-key", other_key], "does not belong to the certificate"),
            (["--tls-cert", key, "--tls-key", key], "holds no PEM certificate"),
            (["--tls-cert", cert, "--tls-key", cert], "holds no PEM private key")]:
        r = run([aimctl, "serve", "--db", db, "--port", "0"] + args)
        check(r.returncode == 2 and message in r.stderr, "serve %s exits %d: %s" % (" ".join(args), r.returncode,
                                                                                     r.stderr[-300:]))


def login(svc, name, password):
    """The token and URI of a new session, or (None, status)."""
    status, headers, body = svc.get("/redfish/v1/SessionService/Sessions", method="POST", credentials=None,
                                    headers={"Content-Type": "application/json"},
                                    body={"UserName": name, "Password": password})
    if status != 201:
        return None, status
    return headers.get("X-Auth-Token"), headers.get("Location")


def auth_edges(svc, aimctl, db, users):
    """What needs credentials, lockout, a session's expiry and the bind rules."""
    device = "/redfish/v1/Systems/system"
    for creds, what in [(None, "no credentials"), (("admin", "wrong"), "a wrong password"),
                        (("nobody", "admin pass"), "an unknown user")]:
        status, headers, body = svc.get(device, credentials=creds)
        check(status == 401 and headers.get("WWW-Authenticate", "").startswith("Basic realm="),
              "%s: %s, WWW-Authenticate %r" % (what, status, headers.get("WWW-Authenticate")))
        check(b"admin pass" not in body and b"nobody" not in body, "%s: the answer tells %r" % (what, body[:300]))
    for uri in ["/redfish", "/redfish/v1", "/redfish/v1/$metadata", "/redfish/v1/odata", "/"]:
        check(svc.get(uri, credentials=None)[0] == 200, "%s needs credentials" % uri)
    status, headers, body = svc.get("/redfish/v1/AccountService/Roles/ReadOnly", credentials=("reader", "reader pass"))
    check(status == 200 and json.loads(body)["AssignedPrivileges"] == ["Login", "ConfigureSelf"],
          "the ReadOnly role: %s %s" % (status, body[:200]))
    # Five wrong passwords: the right one is refused for a while, the other accounts go on.
    for _ in range(5):
        svc.get(device, credentials=("lockme", "wrong"))
    check(svc.get(device, credentials=("lockme", "lock pass"))[0] == 401, "five wrong passwords locked nothing")
    check(login(svc, "lockme", "lock pass")[0] is None, "a locked account logs in")
    check(svc.get(device, credentials=("operator", "op:pass"))[0] == 200, "lockout of one account locks another")
    status, headers, body = svc.get("/redfish/v1/AccountService/Accounts/lockme")
    check(status == 200 and json.loads(body)["Locked"] is True, "the locked account: %s %s" % (status, body[:200]))
    # The sessions of redfishtool and sushy ended with them.
    status, headers, body = svc.get("/redfish/v1/SessionService/Sessions")
    check(status == 200 and json.loads(body)["Members"] == [], "sessions left: %s" % body[:300])

    # A session ends after --session-timeout seconds without use.
    short = Service(aimctl, db, svc.tls, users, extra=["--session-timeout", "2"])
    try:
        token, where = login(short, "reader", "reader pass")
        if check(token, "the reader cannot log in: %s" % where):
            check(short.get(device, headers={"X-Auth-Token": token}, credentials=None)[0] == 200, "the token is refused")
            time.sleep(3.5)
            check(short.get(device, headers={"X-Auth-Token": token}, credentials=None)[0] == 401,
                  "the session outlived its timeout")
            check(short.get(where)[0] == 404, "the expired session is still listed")
    finally:
        short.stop()

    # Beyond loopback only with HTTPS and users (the refusals come before any bind).
    cert, key = svc.tls
    for args, message in [
            (["--bind", "0.0.0.0"], "beyond this machine the service needs a users file"),
            (["--bind", "0.0.0.0", "--tls-cert", cert, "--tls-key", key], "needs a users file"),
            (["--bind", "::", "--users", users], "never cross a network in clear text"),
            (["--users", os.path.join(os.path.dirname(users), "none")], "cannot read the users file"),
            (["--users", cert], "not NAME:HASH[:ROLE]"),
            (["--session-timeout", "0", "--users", users], "--session-timeout needs a number of seconds"),
            (["--session-timeout", "60"], "--session-timeout needs --users")]:
        r = run([aimctl, "serve", "--db", db, "--port", "0"] + args)
        check(r.returncode == 2 and message in r.stderr, "serve %s exits %d: %s" % (" ".join(args), r.returncode,
                                                                                     r.stderr[-300:]))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--aimctl", required=True)
    ap.add_argument("--source-dir", required=True)
    ap.add_argument("--machine", required=True)
    ap.add_argument("--other-machine", help="ingested into the same database while serving")
    ap.add_argument("--load", action="store_true")
    ap.add_argument("--hostile", action="store_true")
    ap.add_argument("--tls", action="store_true")
    ap.add_argument("--users", action="store_true")
    a = ap.parse_args()
    if a.users and not a.tls:
        raise SystemExit("--users goes with --tls")
    with tempfile.TemporaryDirectory(prefix="aim-redfish.") as tmp:
        db = os.path.join(tmp, "inventory.db")

        ingest_example(a.aimctl, a.source_dir, a.machine, db)
        before = tables_digest(db)
        if a.tls:
            # requests takes a CA bundle named in the environment over a session's verify=False.
            for name in ("REQUESTS_CA_BUNDLE", "CURL_CA_BUNDLE"):
                os.environ.pop(name, None)
            import urllib3
            urllib3.disable_warnings(urllib3.exceptions.InsecureRequestWarning)
        users = make_users(tmp) if a.users else None
        svc = Service(a.aimctl, db, make_certificate(tmp) if a.tls else None, users)
        try:
            if a.tls:
                tls_edges(svc, a.aimctl, db, tmp)
            resources = crawl(svc, db)
            print("crawler: %d resources, %d expected values' resources, %d rows under their own device"
                  % (len(resources), expectations(a.machine, resources), rows_under_own_device(resources)))
            print("redfishtool: %d reads" % redfishtool(svc, resources, a.machine))
            sushy_reads(svc, db, a.machine)
            if a.load:
                load(svc)
            if a.hostile:
                hostile(svc)
            if a.users:
                auth_edges(svc, a.aimctl, db, users)
            check(tables_digest(db) == before, "the requests changed the database")
            if a.other_machine:
                ingest_example(a.aimctl, a.source_dir, a.other_machine, db)
                status, headers, body = svc.get("/redfish/v1/Systems/system")
                served = len(json.loads(body)["PCIeDevices"])
                expected = len({r["PCIKey"] for r in rows(db, "PCIAdapter")})
                check(served == expected, "after a new ingest the system shows %d devices, not %d" % (served, expected))
        finally:
            svc.stop()
    return verdict()


if __name__ == "__main__":
    sys.exit(main())
