"""Helpers of the delivery tests: collectors and test hosts that outlive a single test, and the
scenarios that need minutes of real time (the retry pass runs once a minute and a failed or
unanswered submission waits 180 s), which all run at once in the background so that their
waits overlap."""

import datetime
import json
import os
import pathlib
import re
import socket
import subprocess
import threading
import time
import traceback
import zoneinfo

from conftest import BUILD, COLLECTOR, DEBIAN_PYTHON, RunningCollector, _read_ready_line

HOST = BUILD / "tests" / "tarvik_test_host"
EVENT_PATH = "/v1/event/save.json"
# A zone with a half-hour offset and no daylight saving time: a retry date written in UTC, or
# read back in another zone, is off by hours and minutes.
HOST_TIME_ZONE = "Asia/Kolkata"
RETRY_DATE_FORMAT = "%m/%d/%Y %H:%M:%S"
UUID = re.compile(r"^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$")


# ---- folders and environment

def sdk_environment(root):
    """An environment that points every SDK folder into `root`."""
    root = pathlib.Path(root)
    (root / "home").mkdir(parents=True, exist_ok=True)
    env = dict(os.environ)
    env.update(HOME=str(root / "home"), XDG_CACHE_HOME=str(root / "cache"),
               XDG_DATA_HOME=str(root / "data"), XDG_CONFIG_HOME=str(root / "config"),
               TZ=HOST_TIME_ZONE)
    return env


def events_folder(env, status):
    return pathlib.Path(env["XDG_CACHE_HOME"]) / "com.tarvikhq.cache" / "events" / status


def event_folders(env, status):
    """The identifiers of the event folders in one status folder."""
    folder = events_folder(env, status)
    return {entry.name for entry in folder.iterdir() if entry.is_dir()} if folder.exists() \
        else set()


def parse_retry_date(text):
    """The retry date as an aware datetime: the pattern has no zone, it is the host's."""
    return datetime.datetime.strptime(text, RETRY_DATE_FORMAT).replace(
        tzinfo=zoneinfo.ZoneInfo(HOST_TIME_ZONE))


def received_at(entry):
    """The moment the collector stored an index entry, as seconds since the epoch."""
    return datetime.datetime.fromisoformat(entry["received"]).timestamp()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


# ---- collectors

def start_collector(data_dir, port=0, api_key=None, rules=None, config=None):
    """A collector on loopback; `rules` and `config` are its scripted answers."""
    data_dir = pathlib.Path(data_dir)
    data_dir.mkdir(parents=True, exist_ok=True)
    command = [DEBIAN_PYTHON, str(COLLECTOR), "--port", str(port), "--data-dir", str(data_dir)]
    if api_key is not None:
        command += ["--api-key", api_key]
    if rules is not None or config is not None:
        script = data_dir / f"script-{time.monotonic_ns()}.json"
        script.write_text(json.dumps({"rules": rules or [], **({"config": config} if config
                                                                 else {})}))
        command += ["--script", str(script)]
    with open(data_dir / "collector.log", "ab") as log:
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=log)
    try:
        return RunningCollector(process, _read_ready_line(process, timeout=60), data_dir)
    except BaseException:
        process.kill()
        process.wait()
        raise


def stop_collector(running):
    running.stop()
    running.process.stdout.close()


def service_arguments(running, pin=None):
    """The test host's options that point it at a collector; `pin` replaces its own pin."""
    return ["--service", f"localhost:{running.port}",
            "--pin", pin or running.ready["leaf_key_pin_rsa2048_prefix"],
            "--ca-bundle", str(running.ca)]


def served_requests(running, path=EVENT_PATH):
    """(method, status) of each request to `path` in the collector's request log, in order."""
    pattern = re.compile(r'"(\w+) ' + re.escape(path) + r'[ ?][^"]*" (\d{3})')
    log = (running.data_dir / "collector.log").read_text(errors="replace")
    return [(match.group(1), int(match.group(2))) for match in pattern.finditer(log)]


# ---- the test host

class Host:
    """A running test host whose output lines are collected, with the time each arrived."""

    def __init__(self, env, *arguments, executable=HOST):
        self.started = time.time()
        self.lines = []
        self._changed = threading.Condition()
        self.process = subprocess.Popen([str(executable), *map(str, arguments)], env=env,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._errors = []
        self._ended = False
        threading.Thread(target=self._read_lines, daemon=True).start()
        threading.Thread(target=self._read_errors, daemon=True).start()

    def _read_lines(self):
        for raw in self.process.stdout:
            with self._changed:
                self.lines.append((time.time(), raw.decode(errors="replace").rstrip("\n")))
                self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def _read_errors(self):
        for raw in self.process.stderr:
            self._errors.append(raw.decode(errors="replace"))

    @property
    def stderr(self):
        return "".join(self._errors)

    def wait_for_line(self, prefix, timeout):
        """The first line starting with `prefix` and its arrival time; None after `timeout`."""
        deadline = time.monotonic() + timeout
        with self._changed:
            while True:
                for arrived, line in self.lines:
                    if line.startswith(prefix):
                        return arrived, line
                left = deadline - time.monotonic()
                if left <= 0 or self._ended:
                    return None
                self._changed.wait(min(left, 0.2))

    def values(self, prefix):
        """The word after `prefix` on every line that starts with it."""
        return [line.split()[1] for _, line in self.lines if line.startswith(prefix + " ")]

    def queued(self):
        return self.values("queued")

    def left(self):
        return {line.split()[1]: line.split()[2] for _, line in self.lines
                if line.startswith("left ")}

    def finish(self, timeout):
        """Waits for the exit; returns the exit status."""
        try:
            status = self.process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise AssertionError(f"the test host ran longer than {timeout} s: {self.lines}")
        self.wait_for_line("done", 5)
        return status

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()


def run_host(env, *arguments, timeout=60, executable=HOST):
    """Runs a test host to its end; returns it after checking its exit status."""
    host = Host(env, *arguments, executable=executable)
    status = host.finish(timeout)
    assert status == 0, f"exit {status}: {host.stderr}"
    return host


def enable_events(env, running, *extra):
    """A first run that makes sure the service has events on; the flag persists."""
    run_host(env, "record-events", 0, *service_arguments(running), "--wait-enabled", 30, *extra)


# ---- scenarios that run in the background

SCENARIOS = {}


def background_scenario(name):
    """Registers `function(workdir, cleanup)`; its result is what the test then checks."""

    def register(function):
        SCENARIOS[name] = function
        return function

    return register


class Cleanup:
    """Collectors and hosts a scenario started, stopped at the end of the session."""

    def __init__(self):
        self._lock = threading.Lock()
        self._collectors = []
        self._hosts = []

    def collector(self, running):
        with self._lock:
            self._collectors.append(running)
        return running

    def host(self, host):
        with self._lock:
            self._hosts.append(host)
        return host

    def run(self):
        for host in self._hosts:
            host.kill()
        for running in self._collectors:
            stop_collector(running)


class BackgroundScenarios:
    """Starts the named scenarios at once, each on its own thread and in its own folder."""

    def __init__(self, root, names):
        self.cleanup = Cleanup()
        self._results = {}
        self._threads = {}
        self.started = time.monotonic()
        for name in sorted(names):
            thread = threading.Thread(target=self._run, args=(name, root / name), daemon=True)
            self._threads[name] = thread
            thread.start()

    def _run(self, name, workdir):
        workdir.mkdir(parents=True, exist_ok=True)
        try:
            self._results[name] = ("ok", SCENARIOS[name](workdir, self.cleanup))
        except BaseException:  # reported to the test that asks for the result
            self._results[name] = ("error", traceback.format_exc())

    def result(self, name, timeout=480):
        self._threads[name].join(timeout)
        if self._threads[name].is_alive():
            raise AssertionError(f"scenario {name} still running after {timeout} s")
        outcome, value = self._results[name]
        if outcome == "error":
            raise AssertionError(f"scenario {name} failed:\n{value}")
        return value

    def stop(self):
        self.cleanup.run()
