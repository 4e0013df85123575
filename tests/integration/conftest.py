"""Shared fixtures: the built binaries and a private folder tree for each test."""

import os
import pathlib
import subprocess
import time

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("TARVIK_BUILD_DIR", REPO / "build" / "default"))


@pytest.fixture
def sdk_env(tmp_path):
    """Environment that points every SDK folder into this test's own tree."""
    env = dict(os.environ)
    home = tmp_path / "home"
    home.mkdir()
    env.update(
        HOME=str(home),
        XDG_CACHE_HOME=str(tmp_path / "cache"),
        XDG_DATA_HOME=str(tmp_path / "data"),
        XDG_CONFIG_HOME=str(tmp_path / "config"),
    )
    return env


@pytest.fixture
def run_tool(sdk_env):
    """Runs the `tarvik` tool and returns the completed process."""

    def run(*arguments, check=True):
        result = subprocess.run(
            [str(BUILD / "tools" / "tarvik" / "tarvik"), *map(str, arguments)],
            env=sdk_env, capture_output=True, text=True, timeout=60)
        if check:
            assert result.returncode == 0, result.stderr
        return result

    return run


@pytest.fixture
def run_demo(sdk_env):
    def run(*arguments):
        return subprocess.run([str(BUILD / "examples" / "demo" / "tarvik_demo"),
                               *map(str, arguments)], env=sdk_env, capture_output=True,
                              text=True, timeout=120)

    return run


@pytest.fixture
def host(sdk_env):
    """Runs the test host with a scenario; returns (completed process, system log bytes,
    seconds from its announced throw to its exit or None)."""

    def run(*arguments, timeout=60):
        process = subprocess.Popen(
            [str(BUILD / "tests" / "tarvik_test_host"), *map(str, arguments)], env=sdk_env,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate(timeout=timeout)
        ended = time.monotonic()
        completed = subprocess.CompletedProcess(process.args, process.returncode, out, err)
        log = pathlib.Path(sdk_env["XDG_CACHE_HOME"]) / "com.tarvikhq.cache" / "temp_logs" / \
            "system_logs.txt"
        throw_line = next((line for line in out.splitlines() if line.startswith(b"THROWING AT ")),
                          None)
        waited = ended - float(throw_line.split()[-1]) if throw_line else None
        return completed, log.read_bytes(), waited

    return run


# ---- the reference collector (tools/collector), started per test on loopback

import json  # noqa: E402
import selectors  # noqa: E402

COLLECTOR = REPO / "tools" / "collector" / "collector.py"
DEBIAN_PYTHON = "/usr/bin/python3"


class RunningCollector:
    """A collector subprocess; `ready` is the JSON line it printed (port, ca, pins...)."""

    def __init__(self, process, ready, data_dir):
        self.process = process
        self.ready = ready
        self.data_dir = data_dir
        self.port = ready["port"]
        self.ca = pathlib.Path(ready["ca"])

    def submissions(self):
        """The index entries, oldest first."""
        index = self.data_dir / "index.jsonl"
        if not index.exists():
            return []
        return [json.loads(line) for line in index.read_text(encoding="utf-8").splitlines()]

    def config_requests(self):
        log = self.data_dir / "config_requests.jsonl"
        if not log.exists():
            return []
        return [json.loads(line) for line in log.read_text(encoding="utf-8").splitlines()]

    def stop(self):
        """SIGTERM, then the exit status (0 on a clean shutdown)."""
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        return self.process.returncode


def _read_ready_line(process, timeout):
    deadline = time.monotonic() + timeout
    line = b""
    with selectors.DefaultSelector() as selector:
        selector.register(process.stdout, selectors.EVENT_READ)
        while not line.endswith(b"\n"):
            left = deadline - time.monotonic()
            if left <= 0 or not selector.select(left):
                raise TimeoutError("the collector printed no ready line in time")
            chunk = process.stdout.read1(4096)
            if not chunk:
                raise RuntimeError(f"the collector exited early ({process.wait()})")
            line += chunk
    return json.loads(line)


@pytest.fixture
def collector(tmp_path):
    """Starts collectors: `collector(api_key=..., leaf_key=..., script=PATH)`; all are stopped
    after the test. Their request log goes to DATA_DIR/collector.log."""
    started = []

    def start(api_key=None, leaf_key="rsa2048", script=None, name="collector"):
        data_dir = tmp_path / name
        data_dir.mkdir(exist_ok=True)  # the same name restarts on the same folder
        command = [DEBIAN_PYTHON, str(COLLECTOR), "--port", "0", "--data-dir", str(data_dir),
                   "--leaf-key", leaf_key]
        if api_key is not None:
            command += ["--api-key", api_key]
        if script is not None:
            command += ["--script", str(script)]
        with open(data_dir / "collector.log", "wb") as log:
            process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=log)
        try:
            running = RunningCollector(process, _read_ready_line(process, timeout=60), data_dir)
        except BaseException:
            process.kill()
            process.wait()
            raise
        started.append(running)
        return running

    yield start
    for running in started:
        running.stop()
        running.process.stdout.close()


# ---- delivery scenarios that take minutes of real time, run at once in the background

def pytest_configure(config):
    config.addinivalue_line(
        "markers", "background(name): the test checks the result of a background scenario")


@pytest.fixture(scope="session", autouse=True)
def background_scenarios(request, tmp_path_factory):
    """Starts every background scenario that a selected test names (by its `background`
    marker), all at once when the session starts, so that they overlap with each other and
    with the other tests; `result(name)` waits for one and returns what it observed."""
    from delivery_support import BackgroundScenarios

    names = {marker.args[0] for item in request.session.items
             for marker in item.iter_markers("background")}
    scenarios = BackgroundScenarios(tmp_path_factory.mktemp("background"), names)
    yield scenarios
    scenarios.stop()
