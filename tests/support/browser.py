"""Chromium, driven through pipes by its own protocol; it keeps what a page has logged and fetched."""

import base64
import json
import os
import pathlib
import select
import subprocess
import time

DEADLINE = 60


class Browser:
    """One page. `prefix` runs it elsewhere, for example in a network namespace."""

    def __init__(self, profile: pathlib.Path, *prefix: str, width: int = 1280, height: int = 900):
        to_read, self.out = os.pipe()
        self.into, to_write = os.pipe()
        # The browser reads its descriptor 3 and writes its descriptor 4.
        command = ["sh", "-c", f'exec "$@" 3<&{to_read} 4>&{to_write}', "sh", *prefix, "chromium", "--headless",
                   "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--remote-debugging-pipe",
                   "--no-first-run", "--disable-background-networking", f"--user-data-dir={profile}",
                   f"--window-size={width},{height}"]
        self.process = subprocess.Popen(command, pass_fds=(to_read, to_write), stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(to_write)
        self.number, self.received, self.answers = 0, b"", {}
        self.complaints: list[str] = []  # errors and warnings of the page
        self.requests: list[str] = []  # addresses
        self.session = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Runtime", "Log", "Network", "Page"):
            self.call(f"{domain}.enable")

    def close(self) -> None:
        self.process.kill()
        self.process.wait()
        os.close(self.out)
        os.close(self.into)

    def call(self, method: str, **parameters) -> dict:
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.out, json.dumps(message).encode() + b"\0")
        end = time.monotonic() + DEADLINE
        while self.number not in self.answers:
            self.hear(end - time.monotonic())
        answer = self.answers.pop(self.number)
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']}")
        return answer["result"]

    def hear(self, seconds: float) -> None:
        """Takes in what the browser says within a time."""
        if seconds <= 0 or not select.select([self.into], [], [], seconds)[0]:
            raise TimeoutError("the browser does not answer")
        piece = os.read(self.into, 1 << 20)
        if not piece:
            raise EOFError("the browser has ended")
        self.received += piece
        *whole, self.received = self.received.split(b"\0")
        for text in whole:
            message = json.loads(text)
            if "id" in message:
                self.answers[message["id"]] = message
            else:
                self.note(message["method"], message["params"])

    def note(self, event: str, told: dict) -> None:
        if event == "Runtime.exceptionThrown":
            self.complaints.append(json.dumps(told["exceptionDetails"]))
        elif event == "Runtime.consoleAPICalled" and told["type"] in ("error", "warning", "assert"):
            self.complaints.append(json.dumps(told["args"]))
        elif event == "Log.entryAdded" and told["entry"]["level"] in ("error", "warning"):
            self.complaints.append(told["entry"]["text"])
        elif event == "Network.requestWillBeSent":
            self.requests.append(told["request"]["url"])

    def open(self, address: str) -> None:
        self.call("Page.navigate", url=address)
        self.until("document.readyState === 'complete'")

    def value(self, expression: str):
        """Of an expression in the page."""
        done = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in done:
            raise RuntimeError(f"{expression}: {done['exceptionDetails']}")
        return done["result"].get("value")

    def until(self, expression: str) -> None:
        end = time.monotonic() + DEADLINE
        while not self.value(expression):
            if time.monotonic() > end:
                raise TimeoutError(expression)
            time.sleep(0.05)

    def press(self, key: str, code: int) -> None:
        for kind in ("rawKeyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=code,
                      nativeVirtualKeyCode=code)
        if key == "Enter":
            self.call("Input.dispatchKeyEvent", type="char", text="\r", key=key)

    def emulate(self, width: int, height: int, scheme: str = "light", media: str = "") -> None:
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 600)
        self.call("Emulation.setEmulatedMedia", media=media,
                  features=[{"name": "prefers-color-scheme", "value": scheme}])

    def screenshot(self, path: pathlib.Path) -> None:
        """Of the whole page."""
        taken = self.call("Page.captureScreenshot", captureBeyondViewport=True)
        path.write_bytes(base64.b64decode(taken["data"]))
