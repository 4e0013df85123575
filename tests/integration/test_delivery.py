"""Events recorded by a real host through the public interface and delivered over TLS, with the
service's key pinned, to the reference collector: what arrives, and what the SDK does with each
kind of answer. The scenarios that wait for retry passes run in the background (conftest.py)."""

import datetime
import json
import os
import pathlib
import random
import re
import shutil
import struct
import time
import zipfile

import pytest

from conftest import (EVENT_PATH, HOST, REPO, Host, RunningCollector, background_scenario,
                      event_folders, events_folder, parse_retry_date, run_host,
                      sdk_environment, service_arguments, stored, wait_until)

SCENARIO_SOURCE = REPO / "tests" / "host" / "DeliveryScenario.cpp"
UUID = re.compile(r"^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$")
RETRY_DELAY = 180
RETRY_PASS = 60
MESSAGE = "card declined \u2014 carte refus\u00e9e"
# An icon: a PNG image of 3 x 2 pixels, each of another colour.
ICON = bytes.fromhex("89504e470d0a1a0a0000000d49484452000000030000000208060000009d74661a0000001b"
                     "4944415478da63606038f15f038803809881410ec801e2002006008cfb0bf5b63d954d00"
                     "00000049454e44ae426082")


def unzipped(folder, part):
    """{entry name: bytes} of a zipped file part, read with zipfile (CRCs checked)."""
    with zipfile.ZipFile(folder / part["stored_as"]) as archive:
        assert archive.testzip() is None
        return {name: archive.read(name) for name in archive.namelist()}


@pytest.fixture
def host_with_icon(tmp_path):
    """The test host copied beside an icon file, which its bundle then names."""
    shutil.copy2(HOST, tmp_path / HOST.name)
    (tmp_path / "TestIcon.png").write_bytes(ICON)
    return tmp_path / HOST.name


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
                    "delivery-key", "--message", MESSAGE, "--attach", notes, "--attach", blob,
                    "--include-attachments", "--run", 30,
                    "--until-delivered", executable=host_with_icon)
    after = time.time()
    [uuid] = host.queued()
    assert UUID.match(uuid) and host.left() == {}
    [entry] = running.submissions()
    assert (entry["kind"], entry["uuid"], entry["duplicate"]) == ("event", uuid, False)
    fields, files, folder = stored(entry)
    assert json.loads((folder / "headers.json").read_text())["X-Tarvik-Api-Key"] == "delivery-key"

    # The event itself: the full path as the compiler gave it, the function and the line.
    assert fields["message"] == MESSAGE + " 0"
    assert os.path.isabs(fields["file_name"])
    assert os.path.samefile(fields["file_name"], SCENARIO_SOURCE)
    assert fields["method_name"] == "recordHostEvent"
    source_lines = SCENARIO_SOURCE.read_text().splitlines()
    assert source_lines[int(fields["line_number"]) - 1].strip().startswith("TARVIK_RECORD_EVENT(")
    created = datetime.datetime.strptime(fields["created_date"], "%Y-%m-%dT%H:%M:%S%z")
    assert before - 1 <= created.timestamp() <= after

    # Who the user is and what the app is.
    user = {key[len("user_properties["):-1]: value for key, value in fields.items()
            if key.startswith("user_properties[")}
    assert 0 <= float(user.pop("session_length")) <= after - before
    assert user.pop("framework_version")
    assert user == {
        "identifier": "user-42", "username": "ann", "full_name": "Ann Example",
        "email": "ann@example.com", "app_version": "2.5", "build_version": "250",
        "exec_name": "tarvik_test_host", "app_name": "Tarvik Test Host",
        "app_bundle_identifier": "com.tarvikhq.testhost"}

    # The host's custom properties, each as its text; a dictionary as JSON text.
    metadata = {key[len("metadata["):-1]: value for key, value in fields.items()
                if key.startswith("metadata[")}
    assert json.loads(metadata.pop("checkout")) == {"step": "payment", "attempt": 2}
    assert metadata == {"plan": "gold", "cart_items": "3", "beta": "1", "ratio": "2.5"}

    # The device, compared with what this machine says of itself.
    uname = os.uname()
    memory_total = next(int(line.split()[1]) * 1024 for line in
                        pathlib.Path("/proc/meminfo").read_text().splitlines()
                        if line.startswith("MemTotal:"))
    assert fields["device_info[device_type]"] == uname.machine
    assert fields["device_info[os_version]"] == f"{uname.sysname} {uname.release}"
    # A virtual machine's total can move by a few pages between the host's reading and ours.
    assert abs(int(fields["device_info[memory_total]"]) - memory_total) <= 1 << 20
    assert 0 < int(fields["device_info[memory_used]"]) < memory_total
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
    # The icon named in the bundle, found beside the executable; its pixels are the image
    # tests' concern.
    icon = (folder / files["app_icon.png"]["stored_as"]).read_bytes()
    assert files["app_icon.png"]["content_type"] == "image/png"
    assert icon.startswith(b"\x89PNG\r\n\x1a\n") and struct.unpack(">II", icon[16:24]) == (3, 2)

    # Answered for good: nothing is left on disk.
    assert not any(event_folders(env, status) for status in ("Processing", "Queued", "Sent"))


def test_the_service_switches_events_off_in_its_answer_and_it_is_remembered(collector,
                                                                            tmp_path):
    off = {"enabled": False, "check_interval": 15}
    running = collector(script={"rules": [{"path": EVENT_PATH, "event": off, "delay": 1}],
                                "config": off})
    env = sdk_environment(tmp_path / "sdk")
    # The first answer (slow in coming) switches events off: the events queued behind it are
    # dropped unsent.
    first = run_host(env, "record-events", 3, *service_arguments(running), "--run", 30,
                     "--until-delivered")
    assert len(first.queued()) == 3 and first.left() == {}
    [entry] = running.submissions()
    assert entry["uuid"] in first.queued()
    assert running.served_requests() == [("POST", 200)]
    # Off is remembered: the next run asks the service again and records nothing.
    second = run_host(env, "record-events", 3, *service_arguments(running), "--run", 2)
    assert second.queued() == [] and second.left() == {}
    assert len(running.submissions()) == 1
    query = {"app_bundle_identifier": "com.tarvikhq.testhost", "app_name": "Tarvik Test Host"}
    assert running.config_requests()
    assert all((request["status"], request["query"]) == (200, query)
               for request in running.config_requests())


# ---- answers that end a submission, and answers that keep it (background scenarios)

@background_scenario
def rejected(workdir, track, status):
    """One event answered with `status` (401: the collector refuses the API key); the host then
    runs past the moments two retry passes would have sent it again."""
    running = track(RunningCollector(
        workdir / "collector", api_key="right-key" if status == 401 else None,
        script=None if status == 401 else {"rules": [{"path": EVENT_PATH, "status": status,
                                                      "times": 1}]}))
    env = sdk_environment(workdir / "sdk")
    host = track(Host(env, "record-events", 1, *service_arguments(running),
                      "--run", RETRY_PASS * 4 + 10))
    exit_status = host.finish(RETRY_PASS * 4 + 60)
    return {"queued": host.queued(), "exit": exit_status, "left": host.left(),
            "requests": running.served_requests(), "stored": running.submissions()}


@pytest.mark.parametrize("status", [
    pytest.param(401, marks=pytest.mark.background("rejected", 401)),
    pytest.param(400, marks=pytest.mark.background("rejected", 400))])
def test_a_rejected_event_is_discarded_and_never_sent_again(background_scenarios, status):
    result = background_scenarios("rejected", status)
    assert len(result["queued"]) == 1
    assert result["exit"] == 0 and result["left"] == {}
    # One request only, in more than four minutes; a 400 rule is used up, so a second try
    # would have been stored.
    assert result["requests"] == [("POST", status)]
    assert result["stored"] == []


@background_scenario
def retry_after_500(workdir, track):
    """Answered 500 once: kept with a retry date, then sent by a later retry pass."""
    running = track(RunningCollector(
        workdir / "collector", script={"rules": [{"path": EVENT_PATH, "status": 500,
                                                  "times": 1}]}))
    env = sdk_environment(workdir / "sdk")
    host = track(Host(env, "record-events", 1, *service_arguments(running),
                      "--run", RETRY_PASS * 6, "--until-delivered"))
    assert wait_until(host.queued, 60), host.stderr
    uuid = host.queued()[0]
    retry_file = events_folder(env, "Queued") / uuid / "retryDate.txt"
    assert wait_until(retry_file.exists, 30), "no retryDate.txt after the 500"
    seen = time.time()
    retry_text = retry_file.read_text()
    exit_status = host.finish(RETRY_PASS * 6 + 60)
    return {"uuid": uuid, "started": host.started, "seen": seen,
            "retry_at": parse_retry_date(retry_text, env),
            "exit": exit_status, "left": host.left(),
            "requests": running.served_requests(), "stored": running.submissions()}


@pytest.mark.background("retry_after_500")
def test_a_failed_event_waits_180_seconds_and_is_sent_by_the_next_retry_pass(
        background_scenarios):
    result = background_scenarios("retry_after_500")
    retry_at = result["retry_at"]
    # 180 s after the answer, which came between the host's start and the moment the file was
    # seen; in the host's local time, whole seconds.
    assert result["started"] + RETRY_DELAY - 1 <= retry_at <= result["seen"] + RETRY_DELAY
    assert result["exit"] == 0 and result["left"] == {}
    assert result["requests"] == [("POST", 500), ("POST", 200)]
    [entry] = result["stored"]
    assert entry["uuid"] == result["uuid"] and not entry["duplicate"]
    # Not before its retry date, and by the first pass after it.
    received = datetime.datetime.fromisoformat(entry["received"]).timestamp()
    assert retry_at < received <= retry_at + RETRY_PASS + 5
