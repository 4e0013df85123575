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
    def run():
        return subprocess.run([str(BUILD / "examples" / "demo" / "tarvik_demo")], env=sdk_env,
                              capture_output=True, text=True, timeout=60)

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
