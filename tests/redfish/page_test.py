#!/usr/bin/python3
"""The inventory page of an example machine in a real browser.

Ingests the example machine, serves it with `aimctl serve --port 0`, loads "/" in Debian's
headless Chromium (--dump-dom after the page's requests are done) and checks that every PCIe
device that the Redfish service lists stands in the page as a row of its own, with its name,
and that the page finished loading. With --screenshot FILE it also saves a screenshot.
Prints '1 passed, 0 failed' or the failures.
"""
import argparse, html, json, os, re, subprocess, sys, tempfile
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


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--aimctl", required=True)
    ap.add_argument("--source-dir", required=True)
    ap.add_argument("--machine", required=True)
    ap.add_argument("--screenshot")
    a = ap.parse_args()
    failures = []
    with tempfile.TemporaryDirectory(prefix="aim-page.") as tmp:
        db = os.path.join(tmp, "inventory.db")
        r = run([a.aimctl, "--log-level", "err", "ingest", "--db", db, "--machine",
                 os.path.join(a.source_dir, "examples/machines", a.machine),
                 os.path.join(a.source_dir, "examples/aim", a.machine + ".xml")])
        if r.returncode != 0:
            raise SystemExit("ingest failed: " + r.stderr)
        svc = Service(a.aimctl, db)
        try:
            system = json.loads(urllib.request.urlopen(svc.base + "/redfish/v1/Systems/system").read())
            devices = [json.loads(urllib.request.urlopen(svc.base + d["@odata.id"]).read()) for d in system["PCIeDevices"]]
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
            print("page: %d adapters shown" % len(shown))
            if a.screenshot:
                height = 160 + 110 * max(1, len(devices))
                r = chromium(["--window-size=1600,%d" % min(height, 1400), "--hide-scrollbars",
                              "--screenshot=" + a.screenshot, svc.base + "/"], os.path.join(tmp, "profile-png"))
                if r.returncode != 0 or not os.path.exists(a.screenshot):
                    failures.append("no screenshot: " + r.stderr[-300:])
        finally:
            svc.stop()
    failures += clients_test.failures  # the server's own stop
    for f in failures:
        print("FAIL " + f)
    print("%d passed, %d failed" % (0 if failures else 1, 1 if failures else 0))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
