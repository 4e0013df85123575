"""Events recorded by a real host through the public interface and delivered over TLS, with the
service's key pinned, to the reference collector: what arrives, and what the SDK does with each
kind of answer. The scenarios that wait for the retry pass run in the background (see
delivery_support.py) and are checked at the end of this module."""

import datetime
import json
import os
import pathlib
import random
import shutil
import struct
import subprocess
import time
import zipfile
import zlib

import pytest

from conftest import BUILD, REPO
from delivery_support import (EVENT_PATH, HOST, Host, background_scenario, enable_events,
                              event_folders, events_folder, free_port, parse_retry_date,
                              received_at, run_host, served_requests, service_arguments,
                              sdk_environment, start_collector, stop_collector, UUID)

SCENARIO_SOURCE = REPO / "tests" / "host" / "DeliveryScenario.cpp"
TOOL = BUILD / "tools" / "tarvik" / "tarvik"
RETRY_DELAY = 180
RETRY_PASS = 60


# ---- a small PNG, written and read here

def png_bytes(width, height, pixel):
    """An 8-bit RGBA PNG where pixel(x, y) gives each (r, g, b, a)."""
    rows = b"".join(b"\x00" + b"".join(bytes(pixel(x, y)) for x in range(width))
                    for y in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + \
            struct.pack(">I", zlib.crc32(kind + data))

    return (b"\x89PNG\r\n\x1a\n" +
            chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def png_pixels(data):
    """(width, height, [(r, g, b, a) per pixel]) of an 8-bit RGB or RGBA PNG, not interlaced."""
    assert data.startswith(b"\x89PNG\r\n\x1a\n")
    offset, idat, header = 8, b"", None
    while offset < len(data):
        length, kind = struct.unpack(">I4s", data[offset:offset + 8])
        body = data[offset + 8:offset + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        offset += 12 + length
    width, height, depth, colour, _, _, interlace = header
    assert depth == 8 and colour in (2, 6) and interlace == 0, header
    channels = 4 if colour == 6 else 3
    raw, stride = zlib.decompress(idat), width * channels
    previous, pixels = bytearray(stride), []
    for y in range(height):
        start = y * (stride + 1)
        kind, line = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        for i in range(stride):
            left = line[i - channels] if i >= channels else 0
            up, corner = previous[i], previous[i - channels] if i >= channels else 0
            if kind == 1:
                line[i] = (line[i] + left) & 0xFF
            elif kind == 2:
                line[i] = (line[i] + up) & 0xFF
            elif kind == 3:
                line[i] = (line[i] + (left + up) // 2) & 0xFF
            elif kind == 4:
                estimate = left + up - corner
                nearest = min((abs(estimate - left), 0, left), (abs(estimate - up), 1, up),
                              (abs(estimate - corner), 2, corner))[2]
                line[i] = (line[i] + nearest) & 0xFF
        pixels += [tuple(line[x * channels:x * channels + 3]) + ((line[x * channels + 3],)
                                                                 if channels == 4 else (255,))
                   for x in range(width)]
        previous = line
    return width, height, pixels


def icon_pixel(x, y):
    return (40 * x % 256, 30 * y % 256, 200, 255)


ICON_SIZE = (6, 5)


# ---- reading what the collector stored

def stored(entry):
    """(fields, files by file name, folder) of one stored submission."""
    folder = pathlib.Path(entry["path"])
    fields = json.loads((folder / "fields.json").read_text(encoding="utf-8"))
    files = {part["filename"]: part for part in
             json.loads((folder / "files.json").read_text(encoding="utf-8"))}
    return fields, files, folder


def unzipped(folder, part):
    """{entry name: bytes} of a zipped file part, read with zipfile (CRCs checked)."""
    with zipfile.ZipFile(folder / part["stored_as"]) as archive:
        assert archive.testzip() is None
        return {name: archive.read(name) for name in archive.namelist()}


def macro_line(source):
    lines = source.read_text().splitlines()
    return next(number for number, line in enumerate(lines, 1) if "TARVIK_RECORD_EVENT(" in line)


def memory_total_bytes():
    for line in pathlib.Path("/proc/meminfo").read_text().splitlines():
        if line.startswith("MemTotal:"):
            return int(line.split()[1]) * 1024
    raise AssertionError("no MemTotal")


@pytest.fixture(scope="module")
def host_with_icon(tmp_path_factory):
    """The test host copied beside an icon file, which its bundle then names."""
    folder = tmp_path_factory.mktemp("host-with-icon")
    shutil.copy2(HOST, folder / HOST.name)
    (folder / "TestIcon.png").write_bytes(png_bytes(*ICON_SIZE, icon_pixel))
    return folder / HOST.name


# ---- what one event carries

MESSAGE = "card declined \u2014 carte refus\u00e9e"


def test_an_event_arrives_with_every_field_and_file(collector, tmp_path, host_with_icon):
    running = collector(api_key="delivery-key")
    env = sdk_environment(tmp_path / "sdk")
    for variable in ("LC_ALL", "LC_MESSAGES"):
        env.pop(variable, None)
    env["LANG"] = "de_AT.UTF-8"
    notes = tmp_path / "notes.txt"
    notes.write_text("order 1182: \u00e9t\u00e9 \u2713\n" * 40, encoding="utf-8")
    blob = tmp_path / "blob.bin"
    blob.write_bytes(random.Random(7).randbytes(3000))

    before = time.time()
    host = run_host(env, "record-events", 1, *service_arguments(running), "--api-key",
                    "delivery-key", "--wait-enabled", 30, "--message", MESSAGE, "--attach", notes,
                    "--attach", blob, "--include-attachments", "--icon", "TestIcon", "--run", 30,
                    "--until-delivered", executable=host_with_icon)
    after = time.time()
    [uuid] = host.queued()
    assert UUID.match(uuid)
    assert host.left() == {}
    [entry] = running.submissions()
    assert (entry["kind"], entry["uuid"], entry["duplicate"]) == ("event", uuid, False)
    fields, files, folder = stored(entry)
    headers = json.loads((folder / "headers.json").read_text())
    assert {name.lower(): value for name, value in headers.items()}["x-tarvik-api-key"] == \
        "delivery-key"

    # The event itself: the full path as the compiler gave it, the function and the line.
    assert fields["uuid"] == uuid
    assert fields["message"] == MESSAGE + " 0"
    assert os.path.isabs(fields["file_name"])
    assert os.path.samefile(fields["file_name"], SCENARIO_SOURCE)
    assert fields["method_name"] == "recordHostEvent"
    assert fields["line_number"] == str(macro_line(SCENARIO_SOURCE))
    created = datetime.datetime.strptime(fields["created_date"], "%Y-%m-%dT%H:%M:%S%z")
    assert before - 1 <= created.timestamp() <= after

    # Who the user is and what the app is.
    assert {key[len("user_properties["):-1]: value for key, value in fields.items()
            if key.startswith("user_properties[")
            and key not in ("user_properties[session_length]",
                            "user_properties[framework_version]")} == {
        "identifier": "user-42", "username": "ann", "full_name": "Ann Example",
        "email": "ann@example.com", "app_version": "2.5", "build_version": "250",
        "exec_name": "tarvik_test_host", "app_name": "Tarvik Test Host",
        "app_bundle_identifier": "com.tarvikhq.testhost"}
    assert 0 <= float(fields["user_properties[session_length]"]) <= after - before
    assert fields["user_properties[framework_version]"]

    # The host's custom properties, each as its text; a dictionary as JSON text.
    metadata = {key[len("metadata["):-1]: value for key, value in fields.items()
                if key.startswith("metadata[")}
    assert json.loads(metadata.pop("checkout")) == {"step": "payment", "attempt": 2}
    assert metadata == {"plan": "gold", "cart_items": "3", "beta": "1", "ratio": "2.5"}

    # The device, compared with what this machine says of itself.
    uname = os.uname()
    assert fields["device_info[device_type]"] == uname.machine
    assert fields["device_info[os_version]"] == f"{uname.sysname} {uname.release}"
    assert int(fields["device_info[memory_total]"]) == memory_total_bytes()
    assert 0 < int(fields["device_info[memory_used]"]) < memory_total_bytes()
    assert 0 < int(fields["device_info[disk_used]"]) <= int(fields["device_info[disk_total]"])
    assert fields["device_info[region]"] == "AT"
    assert fields["device_info[lang]"].startswith("de")
    assert fields["device_info[jailbroken]"] == "0"
    assert 0 <= float(fields["device_info[battery_percentage]"]) <= 100
    # An event has no elapsed times, screenshot or comments.
    assert not [key for key in fields if key.startswith("benchmark[") or key == "comments"]

    # The files: the SDK's own under their base names, zipped; the attachments under
    # "attachments[]", text zipped and the rest as it is.
    assert {(part["field"], name) for name, part in files.items()} == {
        ("debug_logs", "debug_logs.zip"), ("system_logs", "system_logs.zip"),
        ("user_tracking_logs", "user_tracking_logs.zip"), ("stack_trace", "stack_trace.zip"),
        ("user_defaults", "user_defaults.zip"), ("app_icon", "app_icon.png"),
        ("attachments[]", "notes.zip"), ("attachments[]", "blob.bin")}
    logs = {name: unzipped(folder, files[f"{name}.zip"]) for name in
            ("debug_logs", "system_logs", "user_tracking_logs")}
    assert list(logs["debug_logs"]) == ["debug_logs.txt"]
    assert b" DeliveryScenario.cpp describeSession " in logs["debug_logs"]["debug_logs.txt"]
    assert b"host debug record 7" in logs["debug_logs"]["debug_logs.txt"]
    assert b"host console line" in logs["system_logs"]["system_logs.txt"]
    assert b"tapped checkout" in logs["user_tracking_logs"]["user_tracking_logs.txt"]
    defaults = unzipped(folder, files["user_defaults.zip"])
    assert isinstance(json.loads(defaults["user_defaults.json"]), dict)

    frames = json.loads(unzipped(folder, files["stack_trace.zip"])["stack_trace.json"])
    assert [frame["index"] for frame in frames] == list(range(len(frames)))
    assert all(set(frame) == {"index", "lib", "code", "app_frame"} for frame in frames)
    # The trace starts at the host function that recorded the event.
    assert frames[0]["lib"] == "tarvik_test_host" and frames[0]["app_frame"] is True
    assert frames[0]["code"].startswith("recordHostEvent"), frames[0]
    assert any(frame["code"].startswith("main ") for frame in frames)
    assert all(frame["app_frame"] == (frame["lib"] == "tarvik_test_host") for frame in frames)

    assert unzipped(folder, files["notes.zip"]) == {"notes.txt": notes.read_bytes()}
    assert (folder / files["blob.bin"]["stored_as"]).read_bytes() == blob.read_bytes()
    assert files["app_icon.png"]["content_type"] == "image/png"
    width, height, pixels = png_pixels((folder / files["app_icon.png"]["stored_as"]).read_bytes())
    assert (width, height) == ICON_SIZE
    assert pixels == [icon_pixel(x, y) for y in range(height) for x in range(width)]

    # Answered for good: nothing is left on disk.
    assert not any(event_folders(env, status) for status in ("Processing", "Queued", "Sent"))


def test_attachments_stay_out_of_an_event_recorded_without_the_flag(collector, tmp_path):
    running = collector()
    env = sdk_environment(tmp_path / "sdk")
    notes = tmp_path / "notes.txt"
    notes.write_text("not for events\n")
    host = run_host(env, "record-events", 2, *service_arguments(running), "--wait-enabled", 30,
                    "--attach", notes, "--run", 30, "--until-delivered")
    assert len(host.queued()) == 2 and host.left() == {}
    entries = running.submissions()
    assert sorted(entry["uuid"] for entry in entries) == sorted(host.queued())
    for entry in entries:
        _, files, _ = stored(entry)
        assert "attachments[]" not in {part["field"] for part in files.values()}
        assert "debug_logs.zip" in files


def test_the_service_switches_events_off_in_its_answer_and_it_is_remembered(collector,
                                                                            tmp_path):
    off = {"enabled": False, "check_interval": 15}
    script = tmp_path / "events-off.json"
    script.write_text(json.dumps({"rules": [{"path": EVENT_PATH, "event": off, "delay": 1}],
                                  "config": off}))
    running = collector(script=script)
    env = sdk_environment(tmp_path / "sdk")
    # The first answer (slow in coming) switches events off: the events queued behind it are
    # dropped unsent.
    first = run_host(env, "record-events", 3, *service_arguments(running), "--run", 5,
                     "--until-delivered")
    assert len(first.queued()) == 3 and first.left() == {}
    [entry] = running.submissions()
    assert entry["uuid"] in first.queued()
    assert served_requests(running) == [("POST", 200)]
    # Off is remembered: the next run asks the service again and records nothing.
    second = run_host(env, "record-events", 3, *service_arguments(running), "--run", 2)
    assert second.queued() == [] and second.left() == {}
    assert not any(event_folders(env, status) for status in ("Processing", "Queued", "Sent"))
    assert len(running.submissions()) == 1
    # Polling is back on while events are off (a dropped event restarts it, and so does a start).
    requests = running.config_requests()
    assert requests and all(request["status"] == 200 for request in requests)
    assert all(request["query"] == {"app_bundle_identifier": "com.tarvikhq.testhost",
                                    "app_name": "Tarvik Test Host"} for request in requests)


# ---- a man in the middle

def test_a_server_without_the_pinned_key_never_sees_the_event(collector, tmp_path):
    honest = collector(name="honest")
    impostor = collector(name="impostor")
    env = sdk_environment(tmp_path / "sdk")
    enable_events(env, honest)

    # The impostor's chain verifies (its CA is trusted), but its key is not the pinned one.
    host = run_host(env, "record-events", 1,
                    *service_arguments(impostor, pin=honest.ready["leaf_key_pin_rsa2048_prefix"]),
                    "--run", 3)
    [uuid] = host.queued()
    assert host.left() == {uuid: "Queued"}
    assert impostor.submissions() == [] and served_requests(impostor) == []
    deadline = time.monotonic() + 10
    while "TLS handshake with" not in (impostor.data_dir / "collector.log").read_text() and \
            time.monotonic() < deadline:
        time.sleep(0.1)
    assert "TLS handshake with" in (impostor.data_dir / "collector.log").read_text()
    # No answer at all: queued without a retry date until a retry pass gives it one.
    assert not (events_folder(env, "Queued") / uuid / "retryDate.txt").exists()

    # The same submission, sent to the service that holds the pinned key, arrives intact.
    sent = subprocess.run([str(TOOL), "send", uuid, "--host", f"localhost:{honest.port}", "--pin",
                           honest.ready["leaf_key_pin_rsa2048_prefix"], "--ca-bundle",
                           str(honest.ca)], env=env, capture_output=True, text=True, timeout=60)
    assert sent.returncode == 0, sent.stdout + sent.stderr
    [entry] = honest.submissions()
    assert entry["uuid"] == uuid
    assert stored(entry)[0]["message"] == "host event 0"
    assert event_folders(env, "Queued") == set()


# ---- answers that end a submission, and answers that keep it

def _watch_folder_gone(env, uuid, timeout=15):
    deadline = time.monotonic() + timeout
    while uuid in event_folders(env, "Queued") and time.monotonic() < deadline:
        time.sleep(0.05)
    return uuid not in event_folders(env, "Queued")


def _rejected(workdir, cleanup, status):
    """One event answered with `status`; the host then runs past the moment a retry pass would
    have sent it again."""
    api_key = "right-key" if status == 401 else None
    rules = [{"path": EVENT_PATH, "status": status, "times": 1}] if status != 401 else None
    running = cleanup.collector(start_collector(workdir / "collector", api_key=api_key,
                                                rules=rules))
    env = sdk_environment(workdir / "sdk")
    enable_events(env, running, *(["--api-key", api_key] if api_key else []))
    host = cleanup.host(Host(env, "record-events", 1, *service_arguments(running), "--api-key",
                             "wrong-key" if status == 401 else "test-key",
                             "--run", RETRY_PASS * 4 + 10))
    queued = host.wait_for_line("queued ", 30)
    assert queued, host.stderr
    uuid = queued[1].split()[1]
    gone = _watch_folder_gone(env, uuid)
    exit_status = host.finish(RETRY_PASS * 4 + 60)
    return {"uuid": uuid, "gone": gone, "exit": exit_status, "left": host.left(),
            "requests": served_requests(running), "stored": running.submissions(),
            "folders": {status: event_folders(env, status) for status in
                        ("Processing", "Queued", "Sent")}}


@background_scenario("rejected-401")
def rejected_401(workdir, cleanup):
    return _rejected(workdir, cleanup, 401)


@background_scenario("rejected-400")
def rejected_400(workdir, cleanup):
    return _rejected(workdir, cleanup, 400)


@pytest.mark.parametrize("status", [
    pytest.param(401, marks=pytest.mark.background("rejected-401")),
    pytest.param(400, marks=pytest.mark.background("rejected-400"))])
def test_a_rejected_event_is_discarded_and_never_sent_again(background_scenarios, status):
    result = background_scenarios.result(f"rejected-{status}")
    assert result["exit"] == 0
    assert result["gone"], "the rejected submission stayed queued"
    assert result["left"] == {}
    assert result["folders"] == {"Processing": set(), "Queued": set(), "Sent": set()}
    # One request only, in more than four minutes; a 400 rule is used up, so a second try
    # would have been stored.
    assert result["requests"] == [("POST", status)]
    assert result["stored"] == []


@background_scenario("retry-after-500")
def retry_after_500(workdir, cleanup):
    """Answered 500 once: kept with a retry date, then sent by a later retry pass."""
    running = cleanup.collector(start_collector(
        workdir / "collector", rules=[{"path": EVENT_PATH, "status": 500, "times": 1}]))
    env = sdk_environment(workdir / "sdk")
    host = cleanup.host(Host(env, "record-events", 1, *service_arguments(running),
                             "--wait-enabled", 30, "--run", RETRY_PASS * 6,
                             "--until-delivered"))
    queued = host.wait_for_line("queued ", 60)
    assert queued, host.stderr
    uuid = queued[1].split()[1]
    retry_file = events_folder(env, "Queued") / uuid / "retryDate.txt"
    deadline = time.monotonic() + 30
    while not retry_file.exists() and time.monotonic() < deadline:
        time.sleep(0.05)
    first_answer = served_requests(running)
    retry_text = retry_file.read_text() if retry_file.exists() else None
    exit_status = host.finish(RETRY_PASS * 6 + 60)
    return {"uuid": uuid, "queued_at": queued[0], "retry_text": retry_text,
            "first_answer": first_answer, "exit": exit_status, "left": host.left(),
            "requests": served_requests(running), "stored": running.submissions()}


@pytest.mark.background("retry-after-500")
def test_a_failed_event_waits_180_seconds_and_is_sent_by_the_next_retry_pass(
        background_scenarios):
    result = background_scenarios.result("retry-after-500")
    assert result["first_answer"] == [("POST", 500)]
    assert result["retry_text"] is not None, "no retryDate.txt after the 500"
    retry_at = parse_retry_date(result["retry_text"]).timestamp()
    # Written right after the answer, in the host's local time, whole seconds.
    assert result["queued_at"] + RETRY_DELAY - 3 <= retry_at <= result["queued_at"] + \
        RETRY_DELAY + 3
    assert result["exit"] == 0 and result["left"] == {}
    assert result["requests"] == [("POST", 500), ("POST", 200)]
    [entry] = result["stored"]
    assert entry["uuid"] == result["uuid"] and not entry["duplicate"]
    # Not before its retry date, and by the first pass after it.
    assert retry_at < received_at(entry) <= retry_at + RETRY_PASS + 5


@background_scenario("down-then-up")
def down_then_up(workdir, cleanup):
    """Recorded while the service is down; the service comes back on the same port, and the
    host, started again, delivers the event."""
    port = free_port()
    data_dir = workdir / "collector"
    env = sdk_environment(workdir / "sdk")
    first = start_collector(data_dir, port=port)
    try:
        enable_events(env, first)
    finally:
        stop_collector(first)

    host = cleanup.host(Host(env, "record-events", 1, *service_arguments(first), "--run", 3))
    assert host.finish(60) == 0, host.stderr
    [uuid] = host.queued()
    left_while_down = host.left()
    retry_date_while_down = (events_folder(env, "Queued") / uuid / "retryDate.txt").exists()

    # Back on the same port, with a new certificate whose key the restarted host pins.
    running = cleanup.collector(start_collector(data_dir, port=port))
    restarted = cleanup.host(Host(env, "deliver", *service_arguments(running),
                                  "--run", RETRY_PASS * 6))
    exit_status = restarted.finish(RETRY_PASS * 6 + 60)
    return {"uuid": uuid, "port": port, "same_port": running.port == port,
            "left_while_down": left_while_down, "retry_date_while_down": retry_date_while_down,
            "restarted_at": restarted.started, "exit": exit_status, "left": restarted.left(),
            "stored": running.submissions()}


@pytest.mark.background("down-then-up")
def test_an_event_recorded_while_the_service_is_down_arrives_after_a_restart(
        background_scenarios):
    result = background_scenarios.result("down-then-up")
    assert result["same_port"]
    assert result["left_while_down"] == {result["uuid"]: "Queued"}
    # No answer: no retry date until a retry pass sets one.
    assert not result["retry_date_while_down"]
    assert result["exit"] == 0 and result["left"] == {}
    [entry] = result["stored"]
    assert entry["uuid"] == result["uuid"]
    # The first pass (after a minute) gives it a date 180 s ahead; a later pass sends it.
    waited = received_at(entry) - result["restarted_at"]
    assert RETRY_PASS + RETRY_DELAY - 2 <= waited <= 2 * RETRY_PASS + RETRY_DELAY + 5, waited
