# SPDX-License-Identifier: Apache-2.0
"""A headless Chromium, driven over the WebDriver protocol."""

import base64
import json
import re
import subprocess
import tempfile
import urllib.request

FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
         "--disable-background-networking", "--disable-component-update", "--host-resolver-rules=MAP * ~NOTFOUND")


class Browser:
    def __init__(self):
        self.profile = tempfile.TemporaryDirectory()
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                       text=True)
        port = next(found[1] for line in self.driver.stdout if (found := re.search(r"successfully on port (\d+)", line)))
        self.url = f"http://127.0.0.1:{port}/session"
        options = {"args": [*FLAGS, f"--user-data-dir={self.profile.name}"]}
        wanted = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        self.url += "/" + self.post("", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]

    def close(self):
        urllib.request.urlopen(urllib.request.Request(self.url, method="DELETE")).close()
        self.driver.terminate()
        self.driver.communicate()
        self.profile.cleanup()

    def post(self, path, body):
        request = urllib.request.Request(self.url + path, json.dumps(body).encode(),
                                         {"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=60) as reply:
            return json.load(reply)["value"]

    def devtools(self, command, **parameters):
        return self.post("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def open(self, path):
        self.post("/url", {"url": path.as_uri()})

    def run(self, script, *arguments):
        """The value of a script's `return`, or what the promise it returns becomes."""
        return self.post("/execute/sync", {"script": script, "args": arguments})

    def press(self, *keys):
        for key in keys:
            actions = [{"type": kind, "value": key} for kind in ("keyDown", "keyUp")]
            self.post("/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def complaints(self):
        """What the page wrote to the console since the last call."""
        return [entry["message"] for entry in self.post("/se/log", {"type": "browser"})]

    def show_as(self, width, height, scheme):
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                      mobile=width < 600)
        self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def screenshot(self, path):
        picture = self.devtools("Page.captureScreenshot", format="png")
        path.write_bytes(base64.b64decode(picture["data"]))
