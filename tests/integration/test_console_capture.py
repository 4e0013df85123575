"""Console capture and the uncaught-exception handler, in real host processes."""

import re
import signal
import subprocess
import threading
import time

import pytest

from conftest import HOST, cache_folder, wait_until

QUIET_PERIOD = 1.0  # the handler waits for this long without standard-error output
POLL_STEP = 0.5  # and looks again this often
# What the measured wait may add: waking up from a sleep, and the capture thread's reading.
LATENCY = 0.3


def system_log(sdk_env):
    log = cache_folder(sdk_env) / "temp_logs" / "system_logs.txt"
    return log.read_bytes() if log.exists() else b""


def run(sdk_env, *arguments):
    """(completed process with its output as bytes, system log bytes)."""
    process = subprocess.run([str(HOST), *map(str, arguments)], env=sdk_env,
                             capture_output=True, timeout=60)
    return process, system_log(sdk_env)


def start(sdk_env, folder, *arguments, stdout):
    """The host, with its moments in a file of their own and its standard error in another:
    its standard output may be a console that is never read."""
    moments = folder / "moments"
    moments.touch()
    with open(folder / "stderr", "wb") as errors:
        process = subprocess.Popen([str(HOST), *map(str, arguments)], stdout=stdout, stderr=errors,
                                   env=dict(sdk_env, TARVIK_TEST_HOST_MOMENTS=str(moments)))
    return process, moments


def numbered_lines(count):
    """What the host's numbered-lines scenarios write to standard output."""
    return b"".join(b"%09d\n" % i for i in range(count))


def assert_holds_the_end_of(log, written):
    """The system log, cut back to its last bytes, holds the end of `written`: the log only
    adds line feeds between records."""
    kept = log.replace(b"\n", b"")
    assert len(kept) > 50000 and written.replace(b"\n", b"").endswith(kept)


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


@pytest.mark.parametrize("console", ["never read", "read slowly", "busy writer"])
def test_a_console_that_does_not_keep_up_cannot_hold_a_crashing_host(sdk_env, tmp_path, console):
    lines = 400000  # 4 MB, most of it still with the SDK when the exception comes
    if console == "busy writer":
        process, moments = start(sdk_env, tmp_path, "crash-while-writing",
                                 stdout=subprocess.DEVNULL)
    else:
        process, moments = start(sdk_env, tmp_path, "crash-after-output", lines,
                                 stdout=subprocess.PIPE)
    echoed = bytearray()
    if console == "read slowly":  # about 300 KB/s: 13 s for the whole output
        def read_slowly():
            while chunk := process.stdout.read1(16384):
                echoed.extend(chunk)
                time.sleep(0.05)
        reader = threading.Thread(target=read_slowly)
        reader.start()
    try:
        process.wait(timeout=20)
    finally:
        process.kill()
        process.wait()
    if console == "read slowly":
        reader.join()
    assert process.returncode == -signal.SIGABRT
    assert b"\nCAUGHT EXCEPTION: boom " in (tmp_path / "stderr").read_bytes()
    # The quiet second and its polling, then a bounded flush: seconds to spare on a busy machine.
    output = moments.read_bytes()
    waited = moment(output, b"ABORTED") - moment(output, b"THROWING")
    assert QUIET_PERIOD <= waited <= 5.0, waited
    if console != "busy writer":
        # The console got a prefix of the output unchanged; the log got its end.
        assert numbered_lines(lines).startswith(echoed)
        assert_holds_the_end_of(system_log(sdk_env), numbered_lines(lines))


def test_captured_output_waits_in_bounded_memory_and_all_of_it_arrives(sdk_env, tmp_path):
    lines = 4000000  # 40 MB, ten times what the SDK may hold
    process, moments = start(sdk_env, tmp_path, "flood", lines, stdout=subprocess.PIPE)
    try:
        # Nobody reads standard output yet: the host's writes come to wait.
        counts = []
        def stalled():  # no MiB written for a second
            counts.append(moments.read_bytes().count(b"WROTE"))
            return len(counts) > 20 and counts[-21] == counts[-1]
        assert wait_until(stalled, 30)
        with open(f"/proc/{process.pid}/status", "rb") as status:
            peak = int(re.search(rb"VmHWM:\s+(\d+) kB", status.read()).group(1))
        written = moments.read_bytes().count(b"WROTE")
        out = process.stdout.read()
        process.wait(timeout=30)
    finally:
        process.kill()
        process.wait()
    baseline = int(re.search(rb"BASELINE VmHWM:\s+(\d+) kB", moments.read_bytes()).group(1))
    assert written < 20 and (peak - baseline) / 1024 < 12, (written, peak - baseline)
    assert process.returncode == 0
    assert out == numbered_lines(lines)
    assert_holds_the_end_of(system_log(sdk_env), numbered_lines(lines))
