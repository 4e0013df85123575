"""Console capture and the uncaught-exception handler, in real host processes."""

import re
import signal
import subprocess

import pytest

from conftest import HOST, cache_folder

QUIET_PERIOD = 1.0  # the handler waits for this long without standard-error output
POLL_STEP = 0.5  # and looks again this often
# What the measured wait may add: waking up from a sleep, and the capture thread's reading.
LATENCY = 0.3


def run(sdk_env, *arguments):
    """(completed process with its output as bytes, system log bytes)."""
    process = subprocess.run([str(HOST), *map(str, arguments)], env=sdk_env,
                             capture_output=True, timeout=60)
    log = cache_folder(sdk_env) / "temp_logs" / "system_logs.txt"
    return process, log.read_bytes() if log.exists() else b""


def moment(output, what):
    """The monotonic time on the host's "WHAT AT SECONDS" line."""
    return float(re.search(what + rb" AT (\S+)\n", output).group(1))


def only(data, pattern):
    return re.sub(rb"[^" + pattern + rb"]", b"", data)


def test_every_byte_reaches_the_system_log_and_the_real_console(sdk_env):
    # About 90 KB in all: below the 100000 bytes the log is cut back to, so nothing is trimmed.
    lines = 400
    process, log = run(sdk_env, "burst", lines)
    assert process.returncode == 0, process.stderr[-2000:]

    expected_out = b"".join(b"out line " + b"x" * (i % 50) + b" end\n" for i in range(lines))
    expected_out += b"z" * 30000 + b"stdio text without newline"
    expected_err = b"".join(b"ERR LINE " + b"Y" * (i % 70) + b" END\n" for i in range(lines))
    expected_err += b"Q" * 20000 + b"STDIO ERROR TEXT"
    assert len(expected_out) + len(expected_err) < 95000

    # The real console gets each stream exactly as written.
    assert process.stdout == expected_out
    assert process.stderr == expected_err

    # The system log holds both streams: their chunks interleave and each chunk gains one line
    # feed, so compare each stream's own characters, in order.
    assert only(log, b"a-z") == only(expected_out, b"a-z")
    assert only(log, b"A-Z") == only(expected_err, b"A-Z")
    assert log.count(b"\n") >= expected_out.count(b"\n") + expected_err.count(b"\n") + 2


@pytest.mark.parametrize("scenario, reason", [
    ("crash", b"boom from the test host"),
    ("crash-on-thread", b"boom on a worker thread"),
])
def test_uncaught_exception_drains_standard_error_then_prints_the_report(sdk_env, scenario,
                                                                         reason):
    process, log = run(sdk_env, scenario)
    assert process.returncode == -signal.SIGABRT
    if scenario == "crash":
        for i in range(200):
            assert b"LAST WORDS %d\n" % i in log
    report = process.stderr[process.stderr.index(b"\nCAUGHT EXCEPTION: "):]
    assert report.startswith(b"\nCAUGHT EXCEPTION: " + reason + b" \n\nStack Trace: (\n")
    assert report.rstrip().endswith(b")")
    frames = re.findall(rb'^    "(\d+) +(\S+) +0x[0-9a-f]{16} (.+) \+ (\d+)",?$', report, re.M)
    assert frames and [int(f[0]) for f in frames] == list(range(len(frames)))
    assert any(b"throwingFunction" in f[2] for f in frames)
    # The report goes to the console only, never into the log.
    assert b"CAUGHT EXCEPTION" not in log
    # One quiet second, checked every half second.
    waited = moment(process.stdout, b"ABORTED") - moment(process.stdout, b"THROWING")
    assert QUIET_PERIOD <= waited <= QUIET_PERIOD + POLL_STEP + LATENCY, waited


def test_output_that_goes_on_keeps_the_handler_waiting(sdk_env):
    process, log = run(sdk_env, "crash-steady-output")
    assert process.returncode == -signal.SIGABRT
    assert b"boom while talking" in process.stderr
    # Three lines 0.8 s apart after the throw; the wait ends a quiet second after the last.
    aborted = moment(process.stdout, b"ABORTED")
    assert aborted - moment(process.stdout, b"THROWING") >= 3 * 0.8 + QUIET_PERIOD
    last = moment(log, b"STILL TALKING 2")
    assert QUIET_PERIOD <= aborted - last <= QUIET_PERIOD + POLL_STEP + LATENCY
