"""A headless Chromium for tests of pages, driven over the pipe of its DevTools: no port, no driver, no network."""

import json
import os
import select
import shutil
import subprocess
import tempfile
import time

FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--disable-dev-shm-usage", "--remote-debugging-pipe")


def is_there():
    return shutil.which("chromium") is not None


class Browser:
    """One browser with one page. `requests` and `complaints` collect what the page asks for and what goes wrong."""

    def __init__(self, timeout=120):
        self.timeout = timeout
        self.profile = tempfile.mkdtemp(prefix="show-steps-browser-")
        to_read, self.to_write = os.pipe()  # the browser reads commands from its descriptor 3
        self.to_read, to_write = os.pipe()  # and answers on 4

        def descriptors():
            # Both first move out of the way: either number may be one of the two to be replaced.
            a, b = os.dup(to_read), os.dup(to_write)
            high_a, high_b = (os.dup2(fd, fd + 50) for fd in (a, b))
            os.dup2(high_a, 3)
            os.dup2(high_b, 4)

        self.process = subprocess.Popen(["chromium", *FLAGS, f"--user-data-dir={self.profile}"], close_fds=False,
                                        preexec_fn=descriptors, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(to_write)
        self.buffer, self.serial, self.session = b"", 0, None
        self.requests, self.complaints, self.events = [], [], set()
        target = self.send("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.send("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.send(domain + ".enable")

    def close(self):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        os.close(self.to_write)
        os.close(self.to_read)
        shutil.rmtree(self.profile, ignore_errors=True)

    def send(self, method, **params):
        """One command; gives its result."""
        self.serial += 1
        message = {"id": self.serial, "method": method, "params": params}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to_write, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.serial:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]

    def receive(self):
        until = time.monotonic() + self.timeout
        while b"\0" not in self.buffer:
            if not select.select([self.to_read], [], [], max(0, until - time.monotonic()))[0]:
                raise RuntimeError("the browser does not answer")
            data = os.read(self.to_read, 1 << 16)
            if not data:
                raise RuntimeError("the browser has ended")
            self.buffer += data
        text, _, self.buffer = self.buffer.partition(b"\0")
        message = json.loads(text)
        method, params = message.get("method"), message.get("params", {})
        self.events.add(method)
        if method == "Network.requestWillBeSent":
            self.requests.append(params["request"]["url"])
        elif method == "Runtime.consoleAPICalled" and params["type"] in ("error", "warning", "assert"):
            self.complaints.append(str(params["args"]))
        elif method == "Runtime.exceptionThrown":
            self.complaints.append(params["exceptionDetails"]["text"])
        elif method == "Log.entryAdded" and params["entry"]["level"] in ("error", "warning"):
            self.complaints.append(params["entry"]["text"])
        return message

    def open(self, path, width, height=844, dark=False, script=True):
        """Shows a file, in a window of that many CSS pixels."""
        self.send("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 700)
        self.send("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.send("Emulation.setScriptExecutionDisabled", value=not script)
        self.requests, self.complaints, self.events = [], [], set()
        self.send("Page.navigate", url="file://" + os.path.abspath(path))
        while "Page.loadEventFired" not in self.events:
            self.receive()

    def value(self, expression):
        """What an expression gives in the page, as JSON can carry it."""
        result = self.send("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"])
        return result["result"].get("value")

    def screenshot(self, path):
        """The whole page as PNG."""
        import base64
        shot = self.send("Page.captureScreenshot", captureBeyondViewport=True, format="png")
        with open(path, "wb") as f:
            f.write(base64.b64decode(shot["data"]))
