#!/usr/bin/python3
"""The inventory page of an example machine in a real browser.

Ingests the example machine, serves it with `aimctl serve --port 0`, loads "/" in Debian's
headless Chromium (--dump-dom after the page's requests are done) and checks that every PCIe
device that the Redfish service lists stands in the page as a row of its own, with its name,
and that the page finished loading; for the machines of expected.json, the number of rows,
the summary's counts (singular and plural as English has them), and the detail view of each
expected adapter (opened by its #detail= address) with its serial number, MACs and function
ids. With --adapters N the machine is a made-up database of N adapters instead. With
--screenshot FILE it also saves a screenshot. With --users the server has a users file (made
by htpasswd): the page, driven by Selenium through Chromium's driver, shows its login form, says
so for a wrong password, shows every adapter after the login through a Redfish session, and
ends that session when "Log out" is clicked.
Prints '1 passed, 0 failed' or the failures.
"""
import argparse, html, json, os, re, sqlite3, subprocess, sys, tempfile
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import clients_test  # noqa: E402
from clients_test import Service, run  # noqa: E402

CHROMIUM = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--disable-dev-shm-usage", "--virtual-time-budget=20000"]


def chromium(args, profile):
    r = subprocess.run(CHROMIUM + ["--user-data-dir=" + profile] + args, stdout=subprocess.PIPE,
                       stderr=subprocess.PIPE, text=True, timeout=180)
    return r


def plural(n, one, many=None):
    return "%d %s" % (n, one if n == 1 else many or one + "s")


def made_up(aimctl, db, n):
    """A database of n adapters, each with one function, a VPD row and a firmware entry."""
    r = run([aimctl, "init-db", db])
    if r.returncode != 0:
        raise SystemExit("init-db failed: " + r.stderr)
    con = sqlite3.connect(db)
    for i in range(n):
        bus, key = 0x10 + i, (0x10 + i) << 16
        con.execute("INSERT INTO PCIs (SegNo,BusNo,DeviceNo,FunctionNo,SlotNo,DevKey,FunKey,HardwareId,VendorId,"
                    "DeviceId,ClsCode,SlotDesignation) VALUES (0,?,0,0,?,?,?,?,32902,5531,131072,?)",
                    (bus, i + 1, key, key, key, "Slot %d" % (i + 1)))
        con.execute("INSERT INTO PCIAdapter (SegNo,BusNo,DeviceNo,FunctionNo,SlotNo,CardName,PCIKey,PCIFuncKey) "
                    "VALUES (0,?,0,0,?,?,?,?)", (bus, i + 1, "Adapter %d" % (i + 1), key, key))
        con.execute("INSERT INTO VPDs (SlotNo,SerialNo,HardwareId) VALUES (?,?,?)", (i + 1, "SN%04d" % i, key))
        con.execute("INSERT INTO Firmwares (FirmwareName,VersionString,HardwareId) VALUES ('FW',?,?)", ("1.%d" % i, key))
    con.commit()
    con.close()


def details(svc, exp, tmp):
    """The detail view of each expected PCIe device, opened by its address, shows its values."""
    out = []
    for uri, values in exp["resources"].items():
        if "/PCIeDevices/" not in uri:
            continue
        dev_id = uri.rsplit("/", 1)[1]
        r = chromium(["--dump-dom", svc.base + "/#detail=" + dev_id], os.path.join(tmp, "profile-" + dev_id))
        m = re.search(r'<dialog id="detail"[^>]*\bopen\b[^>]*>(.*?)</dialog>', r.stdout, re.S)
        if not m:
            out.append("the detail of %s did not open" % dev_id)
            continue
        text = html.unescape(re.sub(r"<[^>]+>", " ", m.group(1)))
        device = json.loads(urllib.request.urlopen(svc.base + uri).read())
        functions = json.loads(urllib.request.urlopen(svc.base + uri + "/PCIeFunctions").read())
        want = [values["SerialNumber"], values["FirmwareVersion"]]
        want += [json.loads(urllib.request.urlopen(svc.base + f["@odata.id"]).read())["VendorId"]
                 for f in functions["Members"]]
        for port, pv in exp["resources"].items():
            if "/Ports/" in port and dev_id in port:
                want += pv["Ethernet/AssociatedMACAddresses"]
        want.append(plural(len(functions["Members"]), "PCIe function"))
        want += [row["CardName"] for row in device["Oem"]["AIM"]["PCIAdapter"] if "CardName" in row]
        for w in want:
            if w not in text:
                out.append("the detail of %s does not show %r" % (dev_id, w))
    return out


def login_flow(svc, tmp, devices):
    """The page's login form, a wrong and a right password, and the logout (Selenium)."""
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service as DriverService
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support import expected_conditions as shown
    from selenium.webdriver.support.ui import WebDriverWait
    failures = []
    options = webdriver.ChromeOptions()
    for arg in CHROMIUM[1:-1] + ["--user-data-dir=" + os.path.join(tmp, "profile-login")]:
        options.add_argument(arg)
    options.binary_location = "/usr/bin/chromium"
    # The driver named, so that Selenium never looks for one on the network.
    driver = webdriver.Chrome(service=DriverService("/usr/bin/chromedriver"), options=options)
    try:
        wait = WebDriverWait(driver, 20)
        driver.get(svc.base + "/")
        wait.until(shown.visibility_of_element_located((By.ID, "login")))
        name, password = clients_test.ACCOUNTS[2][:2]

        def log_in(pw):
            for field, value in (("user", name), ("password", pw)):
                box = driver.find_element(By.ID, field)
                box.clear()
                box.send_keys(value)
            driver.find_element(By.CSS_SELECTOR, "#login button[type=submit]").click()

        log_in("wrong")
        wait.until(shown.text_to_be_present_in_element((By.ID, "login-error"), "Wrong user name or password"))
        log_in(password)
        wait.until(lambda d: d.find_element(By.TAG_NAME, "body").get_attribute("data-loaded") == "true")
        rows = driver.find_elements(By.CSS_SELECTOR, "#inventory tbody tr")
        if len(rows) != len(devices):
            failures.append("after the login: %d rows for %d adapters" % (len(rows), len(devices)))
        token = driver.execute_script("return sessionStorage.getItem('redfish-token')")
        sessions = json.loads(svc.get("/redfish/v1/SessionService/Sessions")[2])["Members"]
        if not token or len(sessions) != 1:
            failures.append("the login made %d sessions, token %r" % (len(sessions), token))
        driver.find_element(By.ID, "logout").click()
        wait.until(shown.text_to_be_present_in_element((By.ID, "login-error"), "Logged out."))
        if svc.get("/redfish/v1/Systems/system", headers={"X-Auth-Token": token or "-"}, credentials=None)[0] != 401:
            failures.append("the session's token works after the logout")
        if driver.execute_script("return sessionStorage.getItem('redfish-token')") is not None:
            failures.append("the page kept its token after the logout")
        print("login: a wrong password refused, %d adapters after the login, logged out" % len(rows))
    except Exception as e:  # a wait that timed out: what the page shows
        failures.append("the login did not go through (%s): %s" % (type(e).__name__,
                                                                    driver.find_element(By.TAG_NAME, "main").text[:300]))
    finally:
        driver.quit()
    return failures


def page_checks(a, svc, tmp, devices):
    """The page as Chromium shows it (--dump-dom), its detail views and its screenshot."""
    failures = []
    r = chromium(["--dump-dom", svc.base + "/"], os.path.join(tmp, "profile-dom"))
    dom = r.stdout
    if r.returncode != 0 or 'data-loaded="true"' not in dom:
        failures.append("the page did not finish loading (exit %d): %s" % (r.returncode, r.stderr[-500:]))
    rows = re.findall(r'<tr data-device-id="([^"]*)"[^>]*>(.*?)</tr>', dom, re.S)
    shown = {html.unescape(i): html.unescape(re.sub(r"<[^>]+>", " ", body)) for i, body in rows}
    for d in devices:
        if d["Id"] not in shown:
            failures.append("adapter %s (%s) has no row" % (d["Id"], d["Name"]))
        elif d["Name"] not in shown[d["Id"]]:
            failures.append("the row of %s does not show its name %r" % (d["Id"], d["Name"]))
    if len(shown) != len(devices):
        failures.append("%d rows for %d adapters" % (len(shown), len(devices)))
    summary = re.search(r'<span id="summary">(.*?)</span>', dom, re.S)
    summary = html.unescape(summary.group(1)) if summary else ""
    exp = clients_test.EXPECTED.get(a.machine) if not a.adapters else None
    if exp:
        n = exp["counts"]["/redfish/v1/Chassis/chassis/PCIeDevices"]
        if len(shown) != n:
            failures.append("%d rows, expected %d adapters" % (len(shown), n))
        gpus = exp["counts"]["/redfish/v1/Systems/system/Processors"]
        fw = exp["counts"]["/redfish/v1/UpdateService/FirmwareInventory"]
        want = " \u00b7 ".join([plural(n, "adapter"), plural(gpus, "GPU"), plural(exp["drives"], "drive"),
                                plural(fw, "firmware entry", "firmware entries")])
        if summary != want:
            failures.append("the summary says %r, expected %r" % (summary, want))
        failures += details(svc, exp, tmp)
    if a.adapters and (len(shown) != a.adapters or not summary.startswith(plural(a.adapters, "adapter") + " ")):
        failures.append("%d rows and summary %r for %d adapters" % (len(shown), summary, a.adapters))
    print("page: %d adapters shown (%s)" % (len(shown), summary))
    if a.screenshot:
        height = 160 + 110 * max(1, len(devices))
        r = chromium(["--window-size=1600,%d" % min(height, 1400), "--hide-scrollbars",
                      "--screenshot=" + a.screenshot, svc.base + "/"], os.path.join(tmp, "profile-png"))
        if r.returncode != 0 or not os.path.exists(a.screenshot):
            failures.append("no screenshot: " + r.stderr[-300:])
    return failures


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--aimctl", required=True)
    ap.add_argument("--source-dir", required=True)
    ap.add_argument("--machine", required=True)
    ap.add_argument("--screenshot")
    ap.add_argument("--adapters", type=int, help="a made-up database of this many adapters")
    ap.add_argument("--users", action="store_true", help="a users file: the login form and the logout")
    a = ap.parse_args()
    failures = []
    with tempfile.TemporaryDirectory(prefix="aim-page.") as tmp:
        db = os.path.join(tmp, "inventory.db")
        if a.adapters:
            made_up(a.aimctl, db, a.adapters)
        else:
            clients_test.ingest_example(a.aimctl, a.source_dir, a.machine, db)
        svc = Service(a.aimctl, db, users=clients_test.make_users(tmp) if a.users else None)
        try:
            system = json.loads(svc.get("/redfish/v1/Systems/system")[2])
            devices = [json.loads(svc.get(d["@odata.id"])[2]) for d in system["PCIeDevices"]]
            failures += login_flow(svc, tmp, devices) if a.users else page_checks(a, svc, tmp, devices)
        finally:
            svc.stop()
    failures += clients_test.failures  # the server's own stop
    for f in failures:
        print("FAIL " + f)
    print("%d passed, %d failed" % (0 if failures else 1, 1 if failures else 0))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
