#!/usr/bin/python3
"""The appliance console in headless Chromium, driven through WebDriver.

One sandboxed appliance (private bus, simulated engine with 100,000 generated recordings,
the gateway with a password) serves every scenario. Each scenario leaves a screenshot in
<build>/browser-shots/<scenario>.png and the figures it measured in the test output.

Run from ctest (label "browser"), or by hand:
  ZOLO_BINARY_DIR=build /usr/bin/python3 tests/browser/console_test.py
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
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

SOURCE = os.environ.get("ZOLO_SOURCE_DIR") or os.path.dirname(os.path.dirname(
    os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.abspath(os.environ.get("ZOLO_BINARY_DIR") or os.path.join(SOURCE, "build"))
SHOTS = os.path.join(BUILD, "browser-shots")
PASSWORD = "studio-secret"
RECORDINGS = 100000


class Appliance:
    """A sandbox root with its bus, engine and gateway; torn down by stop()."""

    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="zolo-console-")
        self.processes = {}
        try:
            self.lay_out()
        except BaseException:
            self.stop()
            raise

    def lay_out(self):
        subprocess.run(["bash", os.path.join(SOURCE, "scripts/appliance-root.sh"), self.root, BUILD],
                       check=True, cwd=SOURCE)
        www = os.path.join(self.root, "usr/share/zolo-media-gateway/www")
        shutil.copytree(os.path.join(SOURCE, "www"), www)
        hashed = self.hash_password()
        with open(os.path.join(self.root, "etc/gateway.conf"), "w") as conf:
            conf.write("[Gateway]\naddress=127.0.0.1\nport=0\n" + hashed + "\n")
        with open(os.path.join(SOURCE, "data/dbus/private-bus.conf.in")) as template:
            bus_conf = template.read().replace("@SOCKET@", os.path.join(self.root, "bus.socket"))
        with open(os.path.join(self.root, "bus.conf"), "w") as out:
            out.write(bus_conf)
        self.bus = "unix:path=" + os.path.join(self.root, "bus.socket")
        self.start("bus", ["dbus-daemon", "--config-file=" + os.path.join(self.root, "bus.conf"),
                           "--nofork", "--nopidfile"], stdout=subprocess.DEVNULL)
        self.wait_for(lambda: os.path.exists(os.path.join(self.root, "bus.socket")), "the bus")
        self.start_engine()
        self.start_gateway()

    def binary(self, name):
        return os.path.join(BUILD, "tools", name, name)

    def env(self):
        env = dict(os.environ, ZOLO_SYSROOT=self.root, OVIK_LOG_SYSLOG="0")
        if hasattr(self, "bus"):
            env["DBUS_SYSTEM_BUS_ADDRESS"] = self.bus
        return env

    def hash_password(self):
        line = subprocess.run([self.binary("zolo-media-gateway"), "--hash-password"],
                              input=PASSWORD + "\n", capture_output=True, text=True,
                              check=True, env=self.env()).stdout.strip()
        return line

    def start(self, name, argv, **kwargs):
        self.processes[name] = subprocess.Popen(argv, env=self.env(), **kwargs)

    def start_engine(self):
        self.start("engine", [self.binary("zolo-media-sim"), "--sandbox", self.root, "--database",
                              os.path.join(self.root, "var/lib/zolo/media.db"),
                              "--generate-recordings", str(RECORDINGS)],
                   stdout=subprocess.DEVNULL)
        # zmctl's first call also creates the media database the gateway opens.
        zmctl = [self.binary("zmctl"), "--sandbox", self.root, "state"]
        self.wait_for(lambda: subprocess.run(zmctl, env=self.env(), capture_output=True).returncode == 0,
                      "the engine", 60)

    def start_gateway(self):
        self.start("gateway", [self.binary("zolo-media-gateway"), "--config",
                               os.path.join(self.root, "etc/gateway.conf")]
                   + (["--port", str(self.port)] if hasattr(self, "port") else []),
                   stdout=subprocess.PIPE, text=True)
        line = self.processes["gateway"].stdout.readline()
        match = re.search(r"port (\d+)", line)
        if not match:
            raise RuntimeError("the gateway did not start: " + line)
        self.port = int(match.group(1))

    def stop_gateway(self):
        process = self.processes.pop("gateway")
        process.terminate()
        process.wait(10)

    def call(self, method, payload=""):
        """One engine method over the bus; the reply text, or None."""
        done = subprocess.run(["busctl", "--address=" + self.bus, "call", "zolo.media", "/zolo/media",
                               "zolo.Media", method, "s", payload, "--timeout=2"],
                              capture_output=True, text=True)
        return done.stdout if done.returncode == 0 else None

    def emit(self, name, payload):
        self.call("sim_emit", json.dumps({"name": name, "payload": json.dumps(payload)}))

    @staticmethod
    def wait_for(condition, what, seconds=20):
        end = time.time() + seconds
        while time.time() < end:
            if condition():
                return
            time.sleep(0.05)
        raise RuntimeError("timed out waiting for " + what)

    def stop(self):
        for process in reversed(list(self.processes.values())):
            try:
                process.send_signal(signal.SIGCONT)
                process.terminate()
                process.wait(10)
            except Exception:  # already gone
                process.kill()
        shutil.rmtree(self.root, ignore_errors=True)


def browser(width, height):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                     f"--window-size={max(width, 500)},{height}", "--hide-scrollbars"):
        options.add_argument(argument)
    if width < 500:  # narrower than a desktop window may be: emulate the phone's screen
        options.add_experimental_option("mobileEmulation", {"deviceMetrics": {
            "width": width, "height": height, "pixelRatio": 1, "touch": True}})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class ConsoleTest(unittest.TestCase):
    appliance = None
    driver = None
    errors = []

    @classmethod
    def setUpClass(cls):
        os.makedirs(SHOTS, exist_ok=True)
        try:
            cls.appliance = Appliance()
            cls.driver = browser(1280, 720)
        except BaseException:
            cls.tearDownClass()
            raise

    @classmethod
    def tearDownClass(cls):
        if cls.driver:
            cls.driver.quit()
        if cls.appliance:
            cls.appliance.stop()

    # --- helpers ---

    def url(self):
        return f"http://127.0.0.1:{self.appliance.port}/"

    def shot(self, name, driver=None):
        (driver or self.driver).save_screenshot(os.path.join(SHOTS, name + ".png"))

    def until(self, condition, seconds=10, message="", driver=None):
        return WebDriverWait(driver or self.driver, seconds, poll_frequency=0.05).until(
            lambda d: condition(d), message)

    def text(self, selector, driver=None):
        """The shown text of the first element `selector` finds ("" when none); read in the page,
        so a list that re-renders meanwhile leaves no stale reference."""
        return (driver or self.driver).execute_script(
            "const e = document.querySelector(arguments[0]); return e ? e.innerText.trim() : ''",
            selector)

    def js(self, script, *args, driver=None):
        return (driver or self.driver).execute_script(script, *args)

    def check_console(self, driver=None):
        """No JavaScript error in the browser's console since the last check."""
        errors = [entry["message"] for entry in (driver or self.driver).get_log("browser")
                  if entry["level"] == "SEVERE" and "favicon" not in entry["message"]
                  and "/images/" not in entry["message"]]
        self.assertEqual(errors, [], "JavaScript errors")

    def sign_in(self, driver=None):
        driver = driver or self.driver
        started = time.time()
        driver.get(self.url())
        self.until(lambda d: d.find_element(By.ID, "login").get_attribute("open") is not None,
                   driver=driver, message="password prompt")
        driver.find_element(By.ID, "login-password").send_keys(PASSWORD + "\n")
        self.until(lambda d: d.execute_script("return document.body.dataset.loaded") == "true",
                   driver=driver, message="first screen")
        return time.time() - started

    def engine_state(self):
        return self.text("#engine-state")

    # --- scenarios, in order: each starts where the previous one left the page ---

    def test_01_wrong_then_right_password(self):
        self.driver.get(self.url())
        self.until(lambda d: d.find_element(By.ID, "login").get_attribute("open") is not None,
                   message="password prompt")
        self.driver.find_element(By.ID, "login-password").send_keys("not-it\n")
        self.until(lambda d: "Wrong password" in d.find_element(By.ID, "login-error").text,
                   message="wrong password said")
        self.shot("login-wrong")
        started = time.time()
        self.driver.find_element(By.ID, "login-password").send_keys(PASSWORD + "\n")
        self.until(lambda d: d.execute_script("return document.body.dataset.loaded") == "true",
                   message="first screen after sign-in")
        print(f"\nfigure: first screen complete {time.time() - started:.3f} s after sign-in "
              f"({RECORDINGS} recordings)")
        self.assertEqual(self.text("#conn-state"), "connected")
        self.assertEqual(self.engine_state(), "idle")
        self.shot("signed-in")
        self.check_console()

    def first_recording(self):
        """The name in the first row of the recordings table (waits for one)."""
        self.until(lambda d: d.find_elements(By.CSS_SELECTOR, "#rec-table tbody tr"),
                   message="recordings listed; the panel says: " + self.text("#recordings .error"))
        return self.text("#rec-table tbody tr:first-child td:first-child")

    def test_02_record_from_the_buttons(self):
        first = self.first_recording()
        self.driver.find_element(By.ID, "btn-start").click()
        self.until(lambda d: self.engine_state() == "recording", message="recording state")
        self.until(lambda d: self.text("#rec-time") not in ("", "00:00:00"), seconds=5,
                   message="recording time moves")
        self.until(lambda d: d.find_elements(By.CSS_SELECTOR, '#event-log li[data-type="streaming_state"]'),
                   message="engine signal in the event log")
        self.assertFalse(self.driver.find_element(By.ID, "btn-pause").get_property("disabled"))
        self.assertTrue(self.driver.find_element(By.ID, "btn-start").get_property("disabled"))
        self.shot("recording")
        self.driver.find_element(By.ID, "btn-stop").click()
        self.until(lambda d: self.engine_state() == "idle", message="idle again")
        self.until(lambda d: self.text("#rec-table tbody tr:first-child td:first-child") != first,
                   message="the new recording at the top of the list")
        self.shot("recording-stopped")
        self.check_console()

    def test_03_layout_on_air_follows_the_event(self):
        tiles = self.driver.find_elements(By.CSS_SELECTOR, ".tile[data-layout]")
        self.assertGreater(len(tiles), 3)
        on_air = self.driver.find_elements(By.CSS_SELECTOR, ".tile.on-air")
        target = next(t for t in tiles if t not in on_air)
        layout = target.get_attribute("data-layout")
        self.driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", target)
        target.click()
        self.until(lambda d: d.find_element(By.CSS_SELECTOR, ".tile.on-air").get_attribute("data-layout") == layout,
                   message="highlight moved to the clicked layout")
        self.assertEqual(len(self.driver.find_elements(By.CSS_SELECTOR, ".tile.on-air")), 1)
        self.shot("layout-on-air")
        self.check_console()

    def test_04_meters_move_and_hold_the_peak(self):
        port = self.driver.find_element(By.CSS_SELECTOR, ".meters li").get_attribute("data-port")
        self.js("""
            window.longTasks = [];
            new PerformanceObserver((l) => l.getEntries().forEach((e) => longTasks.push(e.duration)))
              .observe({ entryTypes: ['longtask'] });
            window.frames_ = 0;
            (function count() { frames_++; requestAnimationFrame(count); })();""")
        start = time.time()
        self.appliance.emit("audio_level", {"Name": port, "Level": -3, "Left": -3, "Right": -4})
        for _ in range(60):  # quieter levels after the spike, ~2 s at 30 signals a second
            self.appliance.emit("audio_level", {"Name": port, "Level": -40, "Left": -40, "Right": -41})
        meter = f'.meters li[data-port="{port}"] .meter'
        level = self.js(f"return document.querySelector('{meter}').dataset.level")
        peak = self.js(f"return document.querySelector('{meter}').dataset.peak")
        elapsed = time.time() - start
        frames = self.js("return frames_")
        long_tasks = self.js("return longTasks")
        print(f"\nfigure: meters {frames / elapsed:.1f} frames/s while levels arrive; "
              f"long tasks: {len(long_tasks)} (longest {max(long_tasks or [0]):.0f} ms)")
        self.assertEqual(float(level), -40)
        self.assertGreaterEqual(float(peak), -40)  # held, then falling back after 1.5 s
        self.js("document.getElementById('audio').scrollIntoView({block: 'center'})")
        self.appliance.emit("audio_level", {"Name": port, "Level": -6, "Left": -6, "Right": -9})
        self.until(lambda d: self.js(f"return document.querySelector('{meter}').dataset.level") == "-6",
                   message="the meter shows the newest level")
        self.shot("meters")
        self.check_console()

    def test_05_recordings_page_two_and_search(self):
        self.driver.execute_script("document.getElementById('recordings').scrollIntoView()")
        before = self.first_recording()
        started = time.time()
        self.driver.find_element(By.ID, "rec-next").click()
        self.until(lambda d: self.text("#rec-page").startswith("page 2 of")
                   and self.text("#rec-table tbody tr:first-child td:first-child") != before,
                   seconds=1, message="page 2 within 1 s")
        print(f"\nfigure: recordings page 2 of {RECORDINGS} in {time.time() - started:.3f} s")
        self.assertEqual(len(self.driver.find_elements(By.CSS_SELECTOR, "#rec-table tbody tr")), 100)
        wanted = self.text("#rec-table tbody tr:nth-child(7) td:first-child")
        self.driver.find_element(By.ID, "rec-query").send_keys(wanted + "\n")
        self.until(lambda d: self.text("#rec-table tbody tr:first-child td:first-child") == wanted,
                   message="search finds the recording by name")
        self.driver.find_element(By.CSS_SELECTOR, "#rec-table tbody tr:first-child").click()
        self.until(lambda d: "Videos" in self.text("#rec-detail"), message="recording detail")
        # Every bookmark shows its still or says it has none; no broken image stays.
        self.until(lambda d: d.execute_script(
            "return [...document.querySelectorAll('#rec-detail .stills figure')].every(f =>"
            " f.querySelector('.nostill') || f.querySelector('img').naturalWidth > 0)"),
            message="bookmark stills loaded or labelled")
        self.shot("recordings")
        self.check_console()

    def test_06_engine_stops_and_returns_gateway_restarts(self):
        engine = self.appliance.processes["engine"]
        engine.send_signal(signal.SIGSTOP)
        try:
            started = time.time()
            self.until(lambda d: self.text("#conn-state") == "engine not answering", seconds=12,
                       message="the page says the engine does not answer")
            print(f"\nfigure: 'engine not answering' shown {time.time() - started:.1f} s after the engine stopped")
            self.shot("engine-not-answering")
        finally:
            engine.send_signal(signal.SIGCONT)
        self.until(lambda d: self.text("#conn-state") == "connected", seconds=15,
                   message="recovers by itself")
        self.appliance.stop_gateway()
        self.until(lambda d: "offline" in self.text("#conn-state"), message="gateway gone")
        self.shot("gateway-offline")
        self.appliance.start_gateway()
        self.until(lambda d: self.text("#conn-state") == "connected", seconds=20,
                   message="reconnects by itself")
        self.until(lambda d: self.engine_state() == "idle", message="state read again")
        self.shot("reconnected")
        self.check_console()

    def test_07_phone_width_shows_every_panel(self):
        phone = browser(390, 844)
        try:
            elapsed = self.sign_in(phone)
            print(f"\nfigure: phone first screen {elapsed:.3f} s")
            width = self.js("return [document.documentElement.scrollWidth, window.innerWidth]", driver=phone)
            self.assertLessEqual(width[0], width[1], "horizontal scrolling")
            for panel in ("outputs", "inputs", "mixer", "audio", "recordings", "events"):
                box = self.js(f"const r = document.getElementById('{panel}').getBoundingClientRect();"
                              "return [r.left, r.right, r.height]", driver=phone)
                self.assertGreaterEqual(box[0], 0, panel)
                self.assertLessEqual(box[1], width[1], panel)
                self.assertGreater(box[2], 0, panel)
            self.shot("phone", phone)
            phone.execute_script("document.getElementById('audio').scrollIntoView()")
            self.shot("phone-audio", phone)
            self.check_console(phone)
        finally:
            phone.quit()


if __name__ == "__main__":
    unittest.main(verbosity=2)
