"""What the integration tests share: the built binaries, a private folder tree for the SDK, the
reference collector (tools/collector) on loopback, the test host (tests/host), and the delivery
scenarios that need minutes of real time (a retry pass runs once a minute and a failed
submission waits 180 s), which all run at once in the background so that their waits overlap."""

import concurrent.futures
import datetime
import json
import os
import pathlib
import re
import select
import socket
import subprocess
import threading
import time
import zoneinfo

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("TARVIK_BUILD_DIR", REPO / "build" / "default"))
HOST = BUILD / "tests" / "tarvik_test_host"
TOOL = BUILD / "tools" / "tarvik" / "tarvik"
COLLECTOR = REPO / "tools" / "collector" / "collector.py"
DEBIAN_PYTHON = "/usr/bin/python3"
EVENT_PATH = "/v1/event/save.json"
# A zone with a half-hour offset and no daylight saving time: a retry date written in UTC, or
# read back in another zone, is off by hours and minutes.
HOST_TIME_ZONE = "Asia/Kolkata"


# ---- folders

def sdk_environment(root, time_zone=HOST_TIME_ZONE):
    """An environment that points every SDK folder into `root`, in `time_zone` if given."""
    root = pathlib.Path(root)
    (root / "home").mkdir(parents=True, exist_ok=True)
    env = dict(os.environ, HOME=str(root / "home"), XDG_CACHE_HOME=str(root / "cache"),
               XDG_DATA_HOME=str(root / "data"), XDG_CONFIG_HOME=str(root / "config"))
    if time_zone:
        env["TZ"] = time_zone
    return env


@pytest.fixture
def sdk_env(tmp_path):
    return sdk_environment(tmp_path / "sdk")


def cache_folder(env):
    return pathlib.Path(env["XDG_CACHE_HOME"]) / "com.tarvikhq.cache"


def events_folder(env, status):
    return cache_folder(env) / "events" / status


def event_folders(env, status):
    """The identifiers of the event folders in one status folder."""
    folder = events_folder(env, status)
    return {entry.name for entry in folder.iterdir() if entry.is_dir()} if folder.exists() \
        else set()


def parse_retry_date(text, env):
    """A retry date in seconds since the epoch; it is in the zone of the SDK's environment."""
    date = datetime.datetime.strptime(text, "%m/%d/%Y %H:%M:%S")
    return (date.replace(tzinfo=zoneinfo.ZoneInfo(env["TZ"])) if "TZ" in env else date).timestamp()


def wait_until(condition, timeout):
    """Polls `condition` until it gives a true value or `timeout` passes; returns its value."""
    deadline = time.monotonic() + timeout
    while not (value := condition()) and time.monotonic() < deadline:
        time.sleep(0.05)
    return value


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


# ---- the reference collector

class RunningCollector:
    """A collector on loopback, with its data in `data_dir` and its scripted answers ("rules",
    "config") in `script`; `ready` is the JSON line it printed (port, CA, pins)."""

    def __init__(self, data_dir, port=0, api_key=None, leaf_key="rsa2048", script=None):
        self.data_dir = pathlib.Path(data_dir)
        self.data_dir.mkdir(parents=True, exist_ok=True)
        command = [DEBIAN_PYTHON, str(COLLECTOR), "--port", str(port), "--data-dir",
                   str(self.data_dir), "--leaf-key", leaf_key]
        if api_key is not None:
            command += ["--api-key", api_key]
        if script is not None:
            script_path = self.data_dir / f"script-{time.monotonic_ns()}.json"
            script_path.write_text(json.dumps(script))
            command += ["--script", str(script_path)]
        with open(self.data_dir / "collector.log", "ab") as log:
            self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=log)
        ready = select.select([self.process.stdout], [], [], 60)[0] and \
            self.process.stdout.readline()
        if not ready:
            self.stop()
            raise RuntimeError(f"the collector printed no ready line: {self.log()}")
        self.ready = json.loads(ready)
        self.port = self.ready["port"]
        self.ca = pathlib.Path(self.ready["ca"])

    def _records(self, name):
        path = self.data_dir / name
        return [json.loads(line) for line in path.read_text(encoding="utf-8").splitlines()] \
            if path.exists() else []

    def submissions(self):
        """The index entries of what it stored, oldest first."""
        return self._records("index.jsonl")

    def config_requests(self):
        return self._records("config_requests.jsonl")

    def log(self):
        return (self.data_dir / "collector.log").read_text(errors="replace")

    def served_requests(self, path=EVENT_PATH):
        """(method, status) of each request to `path` in its request log, in order."""
        pattern = re.compile(r'"(\w+) ' + re.escape(path) + r'[ ?][^"]*" (\d{3})')
        return [(method, int(status)) for method, status in pattern.findall(self.log())]

    def failed_handshakes(self):
        return self.log().count("TLS handshake with")

    def stop(self):
        """SIGTERM, then the exit status (0 on a clean shutdown)."""
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process.stdout.close()
        return self.process.returncode


@pytest.fixture
def collector(tmp_path):
    """Starts collectors, `collector(name=..., api_key=..., leaf_key=..., script=...)`, each in
    the folder of its name; all are stopped after the test."""
    started = []

    def start(name="collector", **options):
        started.append(RunningCollector(tmp_path / name, **options))
        return started[-1]

    yield start
    for running in started:
        running.stop()


def stored(entry):
    """(fields, files by file name, folder) of one submission the collector stored."""
    folder = pathlib.Path(entry["path"])
    fields = json.loads((folder / "fields.json").read_text(encoding="utf-8"))
    files = {part["filename"]: part for part in
             json.loads((folder / "files.json").read_text(encoding="utf-8"))}
    return fields, files, folder


def service_arguments(running):
    """The test host's options that point it at a collector and pin its key."""
    return ["--service", f"localhost:{running.port}",
            "--pin", running.ready["leaf_key_pin_rsa2048_prefix"], "--ca-bundle", running.ca]


# ---- the test host and the tool

class Host:
    """A running test host whose output lines are collected, with the time each arrived."""

    def __init__(self, env, *arguments, executable=HOST):
        self.started = time.time()
        self.lines, self._errors = [], []
        self.process = subprocess.Popen([str(executable), *map(str, arguments)], env=env,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._readers = [threading.Thread(target=self._read, args=pair, daemon=True) for pair in
                         ((self.process.stdout, self.lines), (self.process.stderr, self._errors))]
        for reader in self._readers:
            reader.start()

    @staticmethod
    def _read(stream, lines):
        for raw in stream:
            lines.append((time.time(), raw.decode(errors="replace").rstrip("\n")))

    @property
    def stderr(self):
        return "\n".join(line for _, line in self._errors)

    def queued(self):
        return [line.split()[1] for _, line in self.lines if line.startswith("queued ")]

    def left(self):
        return {line.split()[1]: line.split()[2] for _, line in self.lines
                if line.startswith("left ")}

    def finish(self, timeout):
        """Waits for the exit and for the last output line; returns the exit status."""
        try:
            status = self.process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.stop()
            raise AssertionError(f"the test host ran longer than {timeout} s: {self.lines}")
        for reader in self._readers:
            reader.join(10)
        return status

    def stop(self):
        """Kills it, then waits until every line it wrote has been read."""
        self.process.kill()
        self.finish(10)


def run_host(env, *arguments, timeout=60, executable=HOST):
    """Runs a test host to its end; returns it after checking its exit status."""
    host = Host(env, *arguments, executable=executable)
    status = host.finish(timeout)
    assert status == 0, f"exit {status}: {host.stderr}"
    return host


@pytest.fixture
def queue_events(sdk_env):
    """Runs the test host to record events that stay queued (the service's port is closed);
    returns their identifiers."""

    def queue(count):
        host = run_host(sdk_env, "record-events", count, "--service",
                        f"127.0.0.1:{free_port()}", "--run", 30, "--until-queued")
        assert len(host.queued()) == count, host.lines
        return host.queued()

    return queue


@pytest.fixture
def run_tool(sdk_env):
    """Runs the `tarvik` tool in the SDK's folder tree; returns the completed process."""

    def run(*arguments, check=True):
        result = subprocess.run([str(TOOL), *map(str, arguments)], env=sdk_env,
                                capture_output=True, text=True, timeout=60)
        assert result.returncode == 0 or not check, result.stderr
        return result

    return run


# ---- scenarios that run in the background

SCENARIOS = {}


def background_scenario(function):
    """Registers `function(workdir, track, *arguments)` under its name; `track(x)` registers a
    collector or host it started, to be stopped when the session ends, and returns it."""
    SCENARIOS[function.__name__] = function
    return function


def pytest_configure(config):
    config.addinivalue_line("markers", "background(name, *arguments): the test checks the "
                                       "result of a background scenario")


@pytest.fixture(scope="session", autouse=True)
def background_scenarios(request, tmp_path_factory):
    """Starts every background scenario that a selected test names by its `background` marker,
    all when the session starts, each on a thread and in a folder of its own, so that their
    waits overlap with each other and with the other tests. Gives `result(name, *arguments)`,
    which waits for the scenario and returns what it observed or raises what it raised."""
    keys = {marker.args for item in request.session.items
            for marker in item.iter_markers("background")}
    started = []

    def track(running):
        started.append(running)
        return running

    with concurrent.futures.ThreadPoolExecutor(max_workers=max(len(keys), 1)) as pool:
        futures = {key: pool.submit(SCENARIOS[key[0]], tmp_path_factory.mktemp(
            "-".join(map(str, key))), track, *key[1:]) for key in keys}
        yield lambda *key: futures[key].result(timeout=480)
        for running in started:
            running.stop()
