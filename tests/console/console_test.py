"""The console in a real headless browser: a draft played through the page's
own controls, a refused call shown beside its control with the state
unchanged, and the page keeping up with the stream.

Usage: console_test.py QEL_HOST SCREENSHOT_FOLDER
Exits 77 (skipped) when chromium, chromedriver or Selenium are missing.
"""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.request

SKIP = 77
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
except ImportError:
    print("skipped: python3-selenium is not installed")
    sys.exit(SKIP)

CHROMIUM = shutil.which("chromium")
DRIVER = shutil.which("chromedriver")
if CHROMIUM is None or DRIVER is None:
    print("skipped: chromium or chromedriver is not installed")
    sys.exit(SKIP)

HOST, SHOTS = sys.argv[1], sys.argv[2]
os.makedirs(SHOTS, exist_ok=True)
failures = []


def check(condition, what):
    print(("ok   " if condition else "FAIL ") + what, flush=True)
    if not condition:
        failures.append(what)


class Serve:
    """`qel-host serve` for one test, stopped whatever happens."""

    def __init__(self, *args):
        self.process = subprocess.Popen(
            [HOST, "serve", "-q", "--token", "console-test", *args],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        line = self.process.stdout.readline().strip()
        match = re.match(r"serving (http://127\.0\.0\.1:(\d+)/\?token=(.+))$", line)
        if not match:
            self.stop()
            raise RuntimeError("no serving line: " + line)
        self.url, self.port, self.token = match.group(1), match.group(2), match.group(3)

    def get(self, path):
        request = urllib.request.Request(
            "http://127.0.0.1:%s%s" % (self.port, path),
            headers={"Authorization": "Bearer " + self.token})
        with urllib.request.urlopen(request, timeout=10) as reply:
            return json.loads(reply.read() or b"null")

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            return -1


def browser():
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    scratch = tempfile.mkdtemp(prefix="qel-console-")
    for flag in ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                 "--user-data-dir=" + scratch, "--disable-background-networking",
                 "--disable-component-update", "--disable-sync", "--no-first-run",
                 "--disable-quic", "--window-size=1280,800"]:
        options.add_argument(flag)
    os.environ["TMPDIR"] = scratch
    return webdriver.Chrome(service=Service(DRIVER), options=options)


def wait_for(driver, test, seconds, what):
    deadline = time.time() + seconds
    while time.time() < deadline:
        try:
            if test():
                return True
        except Exception:  # the page is re-rendering under us
            pass
        time.sleep(0.05)
    check(False, what + " (waited %gs)" % seconds)
    return False


def text(driver, element_id):
    return driver.find_element(By.ID, element_id).text


def click(driver, element_id):
    driver.find_element(By.ID, element_id).click()


def shot(driver, name):
    driver.save_screenshot(os.path.join(SHOTS, name + ".png"))


def draft(driver):
    """Lobby to champion select's lock-in through the page's controls."""
    serve = Serve("--speed", "5", "--seed", "7")
    try:
        started = time.time()
        driver.get(serve.url)
        wait_for(driver, lambda: text(driver, "connection") == "connected", 5, "the page connects")
        paint = time.time() - started
        check(paint < 1.0, "connected and painted in %.2fs, under a second" % paint)
        shot(driver, "1-connected")

        click(driver, "create-lobby")
        wait_for(driver, lambda: "(you)" in text(driver, "lobby") and "2400002" in text(driver, "lobby"),
                 20, "the lobby shows you and the friend who joined")
        click(driver, "set-positions")
        wait_for(driver, lambda: "ready to queue" in text(driver, "lobby")
                 and "not ready" not in text(driver, "lobby"), 20, "the lobby is ready to queue")
        shot(driver, "2-lobby")

        click(driver, "start-search")
        wait_for(driver, lambda: text(driver, "ready-check-state") == "InProgress", 60,
                 "a ready check is shown")
        shot(driver, "3-ready-check")
        click(driver, "accept-check")
        # A stranger may decline the first check: accept every one shown.
        def in_champ_select():
            if "your turn" in text(driver, "session") or "phase" in text(driver, "session"):
                return True
            if text(driver, "ready-check-state") == "InProgress" and "you: None" in text(driver, "search"):
                click(driver, "accept-check")
            return False
        wait_for(driver, in_champ_select, 90, "champion select is shown")
        shot(driver, "4-champion-select")

        # Our actions: pick a champion in the grid and lock it in.
        locked = []
        def play():
            if "No champion select." in text(driver, "session"):
                return bool(locked)
            if "your turn" in text(driver, "my-action"):
                buttons = driver.find_elements(By.CSS_SELECTOR, "#champions button")
                for button in buttons[len(locked) % max(len(buttons), 1):]:
                    champion = button.text
                    button.click()
                    click(driver, "lock-in")
                    time.sleep(0.3)
                    if not text(driver, "session-error"):
                        locked.append(champion)
                        break
            return False
        wait_for(driver, play, 180, "our actions were locked in and the game started")
        check(bool(locked), "the page locked in champions %s" % locked)
        shot(driver, "5-game-started")
        wait_for(driver, lambda: text(driver, "lobby") == "No lobby.", 20,
                 "the lobby is cleared at game start")
        seen = int(text(driver, "last-seq"))
        check(seen > 0, "the page followed the stream (last seq %d)" % seen)
    finally:
        check(serve.stop() == 0, "the gateway stops cleanly")


def refused(driver):
    serve = Serve("--speed", "5")
    try:
        driver.get(serve.url)
        wait_for(driver, lambda: text(driver, "connection") == "connected", 5, "the page connects")
        before = text(driver, "search")
        click(driver, "accept-check")
        wait_for(driver, lambda: text(driver, "search-error") != "", 10,
                 "a refused call shows its status and message")
        message = text(driver, "search-error")
        check(re.match(r"^\d{3} ", message) is not None, "the message starts with the status: " + message)
        check(text(driver, "search") == before, "the shown state is unchanged")
        shot(driver, "6-refused")
    finally:
        serve.stop()


driver = browser()
try:
    refused(driver)
    draft(driver)
finally:
    driver.quit()
print("%d failures" % len(failures))
sys.exit(1 if failures else 0)
