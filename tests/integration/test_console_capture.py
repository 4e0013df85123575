"""Console capture and the uncaught-exception handler, in real host processes."""

import re
import signal


def only(data, pattern):
    return re.sub(rb"[^" + pattern + rb"]", b"", data)


def test_every_byte_reaches_the_system_log_and_the_real_console(host):
    # About 90 KB in all: below the 100000 bytes the log is cut back to, so nothing is trimmed.
    lines = 400
    process, log, _ = host("burst", lines)
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


def test_valid_utf8_is_kept_and_only_bad_bytes_are_replaced(host):
    process, log, _ = host("unicode")
    assert process.returncode == 0
    assert process.stderr == b"bad \xff byte\n"  # echoed unchanged
    assert "café 😀 naïve\n".encode() in log
    assert "bad \ufffd byte\n".encode() in log
    log.decode("utf-8")  # the log itself is always valid UTF-8


def test_uncaught_exception_drains_standard_error_then_prints_the_report(host):
    process, log, waited = host("crash")
    assert process.returncode == -signal.SIGABRT
    for i in range(200):
        assert b"LAST WORDS %d\n" % i in log
    report = process.stderr[process.stderr.index(b"\nCAUGHT EXCEPTION: "):]
    assert report.startswith(b"\nCAUGHT EXCEPTION: boom from the test host \n\nStack Trace: (\n")
    assert report.rstrip().endswith(b")")
    frames = re.findall(rb'^    "(\d+) +(\S+) +0x[0-9a-f]{16} (.+) \+ (\d+)",?$', report, re.M)
    assert frames and [int(f[0]) for f in frames] == list(range(len(frames)))
    assert any(b"throwingFunction" in f[2] for f in frames)
    # The report goes to the console only, never into the log.
    assert b"CAUGHT EXCEPTION" not in log
    # One quiet second, checked every half second.
    assert 1.0 <= waited <= 1.5 + 0.3


def test_output_that_goes_on_keeps_the_handler_waiting(host):
    process, log, waited = host("crash-steady-output")
    assert process.returncode == -signal.SIGABRT
    assert b"boom while talking" in process.stderr
    for i in range(3):
        assert b"STILL TALKING %d" % i in log
    # Three lines 0.8 s apart, then a quiet second: at least 3.4 s in all.
    assert 2.4 + 1.0 <= waited <= 2.4 + 1.5 + 0.3


def test_an_exception_on_another_thread_is_handled_the_same_way(host):
    process, _, waited = host("crash-on-thread")
    assert process.returncode == -signal.SIGABRT
    assert b"\nCAUGHT EXCEPTION: boom on a worker thread \n\nStack Trace: (" in process.stderr
    assert 1.0 <= waited <= 1.8
