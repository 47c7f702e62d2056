"""What the phonebook page runs on, for the browser test and the page's
benchmark: the modem simulator daemon, pb_host and pbweb as child processes
with their logs in a work folder, and headless chromium to show the page.
Import it after selenium, so that a caller without selenium can skip first.
"""
import os
import shutil
import signal
import subprocess
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

CHROMIUM = shutil.which("chromium") or "/usr/bin/chromium"
DRIVER = shutil.which("chromedriver") or "/usr/bin/chromedriver"
WAIT = 60  # seconds for anything the page should get to; a loaded machine is slow


def have_browser():
    return os.access(CHROMIUM, os.X_OK) and os.access(DRIVER, os.X_OK)


def fresh_folders():
    """An empty IPC folder and no device phonebook, in the folders the
    environment names (ZP_IPC_DIR, ZP_NV_DIR, PB_DATA_DIR)."""
    ipc = os.environ["ZP_IPC_DIR"]
    shutil.rmtree(ipc, ignore_errors=True)
    os.makedirs(ipc)
    os.makedirs(os.environ["ZP_NV_DIR"], exist_ok=True)
    os.environ.pop("ZP_QMI_SOCKET", None)  # the simulator's socket is in the IPC folder
    data = os.environ.get("PB_DATA_DIR")
    if data:
        for f in ("pb_device_file", "pb_device_file_tmp"):
            if os.path.exists(os.path.join(data, f)):
                os.remove(os.path.join(data, f))


def wait_for_host():
    """Until pb_host listens: the page's first request would fail before."""
    sock = os.path.join(os.environ["ZP_IPC_DIR"], "ipc_11")
    deadline = time.time() + WAIT
    while not os.path.exists(sock):
        if time.time() > deadline:
            raise AssertionError("pb_host did not come up")
        time.sleep(0.05)


class Processes:
    def __init__(self, work):
        self.procs = []
        self.work = work

    def start(self, argv, log, stdout=None):
        p = subprocess.Popen(argv, stdout=stdout or subprocess.DEVNULL, stderr=open(os.path.join(self.work, log), "ab"))
        self.procs.append(p)
        return p

    def start_pbweb(self, pbweb, log, *options):
        """pbweb on a free port; its address, which it prints first."""
        web = self.start([pbweb, "--listen", "127.0.0.1:0", *options], log, stdout=subprocess.PIPE)
        line = web.stdout.readline().decode()
        url = line.strip().rsplit(" ", 1)[-1].rstrip("/")
        assert url.startswith("http://127.0.0.1:"), line
        return url

    def stop_one(self, p):
        p.send_signal(signal.SIGTERM)
        assert p.wait(timeout=20) == 0, f"{p.args[0]} ended badly"
        self.procs.remove(p)

    def stop(self):
        bad = []
        for p in reversed(self.procs):
            if p.poll() is None:
                p.send_signal(signal.SIGTERM)
            try:
                rc = p.wait(timeout=20)
            except subprocess.TimeoutExpired:
                p.kill()
                rc = "killed"
            if rc != 0:
                bad.append(f"{p.args[0]} ended with {rc}")
        return bad


def chrome(languages="en-US,en", downloads=None):
    opts = webdriver.ChromeOptions()
    opts.binary_location = CHROMIUM
    for a in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
              "--window-size=1280,900", "--lang=" + languages.split(",")[0]):
        opts.add_argument(a)
    prefs = {"intl.accept_languages": languages}
    if downloads:
        prefs.update({"download.default_directory": downloads, "download.prompt_for_download": False})
    opts.add_experimental_option("prefs", prefs)
    return webdriver.Chrome(service=Service(DRIVER), options=opts)
