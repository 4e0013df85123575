"""The demo host and the `tarvik` tool, run as real processes in private folder trees."""

import json
import os
import pathlib
import plistlib
import random
import subprocess
import zipfile

import pytest


def demo_arguments(running):
    return ["--host", f"localhost:{running.port}", "--pin",
            running.ready["leaf_key_pin_rsa2048_prefix"], "--ca", running.ca]


def test_demo_delivers_its_events_to_the_collector(run_demo, run_tool, sdk_env, collector):
    running = collector()
    demo = run_demo(*demo_arguments(running))
    assert demo.returncode == 0, demo.stdout + demo.stderr
    assert "Starting Tarvik - version 1.0.0" in demo.stderr
    assert "demo: events sent 3, still pending 0" in demo.stdout
    # Its console output was captured into the system log, and its debug record logged. The
    # log file is read itself: the demo shows only its last lines, which may be the SDK's own.
    cache = pathlib.Path(sdk_env["XDG_CACHE_HOME"])
    system_log = (cache / "com.tarvikhq.cache" / "temp_logs" / "system_logs.txt").read_text()
    assert "demo: hello from standard output" in system_log
    assert "demo: a warning on standard error (unicode: café ✓)" in system_log
    assert " 2 main.cpp main " in demo.stdout and "checkout finished in 1234 ms" in demo.stdout

    stored = running.submissions()
    assert [entry["kind"] for entry in stored] == ["event"] * 3
    assert not any(entry["duplicate"] for entry in stored)
    attachment = (cache / "demo-cart.txt").read_bytes()
    messages = {}
    for entry in stored:
        folder = pathlib.Path(entry["path"])
        fields = json.loads((folder / "fields.json").read_text())
        headers = json.loads((folder / "headers.json").read_text())
        assert headers["X-Tarvik-Api-Key"] == "demo-api-key"
        assert fields["uuid"] == entry["uuid"]
        assert fields["file_name"].endswith("examples/demo/main.cpp")
        assert fields["method_name"] == "main" and fields["line_number"].isdigit()
        assert fields["user_properties[identifier]"] == "demo-user"
        assert fields["user_properties[full_name]"] == "Dana Demo"
        assert fields["user_properties[email]"] == "dana@example.com"
        assert (fields["metadata[plan]"], fields["metadata[cart_items]"],
                fields["metadata[beta]"]) == ("gold", "2", "1")
        described = {part["filename"]: part
                     for part in json.loads((folder / "files.json").read_text())}
        assert {"debug_logs.zip", "system_logs.zip", "user_tracking_logs.zip",
                "stack_trace.zip"} <= set(described)
        assert all(part["zip_ok"] for part in described.values())
        carried = "demo-cart.zip" in described
        if carried:
            unzipped = folder / described["demo-cart.zip"]["unzipped_to"] / "demo-cart.txt"
            assert unzipped.read_bytes() == attachment
        messages[fields["message"]] = carried
    # The attachment travels only with the events recorded with attachments.
    assert messages == {"checkout failed": True, "coupon rejected": False,
                        "payment retried": True}

    # In debug mode delivered submissions stay in Sent, each with the body it was sent as.
    events = cache / "com.tarvikhq.cache" / "events"
    assert not any((events / "Processing").iterdir()) and not any((events / "Queued").iterdir())
    sent = {path.name: path for path in (events / "Sent").iterdir()}
    assert set(sent) == {entry["uuid"] for entry in stored}
    for entry in stored:
        assert (sent[entry["uuid"]] / "httpBody.txt").stat().st_size == entry["body_size"]

    tree = run_tool("tree").stdout
    assert "com.tarvikhq.cache/" in tree and "config.plist" in tree
    settings_path = pathlib.Path(sdk_env["XDG_DATA_HOME"]) / "com.tarvikhq" / "config.plist"
    with open(settings_path, "rb") as f:
        settings = plistlib.load(f)
    assert set(settings) == {"eventFeatureEnabled", "presentedIntructionCount",
                             "lastPresentedInstructionDate", "firstPresentedInstructionDate",
                             "userEmail"}
    printed = json.loads(run_tool("settings").stdout)
    assert printed["eventFeatureEnabled"] is True and printed["userEmail"] == "dana@example.com"


def test_demo_refuses_to_run_without_a_service(run_demo):
    demo = run_demo()
    assert demo.returncode == 2 and "usage:" in demo.stderr


def test_demo_reports_events_it_could_not_deliver(run_demo, collector, tmp_path):
    # A collector that never answers a submission: the events stay queued for a retry.
    script = tmp_path / "drop-events.json"
    script.write_text(json.dumps(
        {"rules": [{"path": "/v1/event/save.json", "drop": True, "times": 100}]}))
    running = collector(script=script)
    demo = run_demo(*demo_arguments(running), "--time-limit", 5)
    assert demo.returncode == 1
    assert "demo: events sent 0, still pending 3" in demo.stdout
    assert running.submissions() == []


def test_settings_command_fails_cleanly_before_the_sdk_ran(run_tool):
    result = run_tool("settings", check=False)
    assert result.returncode == 1
    assert "no settings file" in result.stderr


def test_settings_command_refuses_a_file_that_is_not_a_property_list(run_tool, sdk_env):
    folder = pathlib.Path(sdk_env["XDG_DATA_HOME"]) / "com.tarvikhq"
    folder.mkdir(parents=True)
    (folder / "config.plist").write_bytes(bytes(random.Random(1).randrange(256) for _ in range(500)))
    result = run_tool("settings", check=False)
    assert result.returncode == 1
    assert "not a property list" in result.stderr


@pytest.mark.parametrize("size", [0, 1024 * 3, 200_000])
def test_zip_command_writes_archives_that_unzip_and_zipfile_accept(run_tool, tmp_path, size):
    source = tmp_path / "Notes ünïcode.txt"
    rng = random.Random(size)
    source.write_bytes(bytes(rng.choice(b"abc \n") for _ in range(size)))
    archive = tmp_path / "out.zip"
    run_tool("zip", source, archive)

    subprocess.run(["unzip", "-tq", str(archive)], check=True, capture_output=True)
    with zipfile.ZipFile(archive) as z:
        [info] = z.infolist()
        assert info.filename == source.name
        assert info.compress_type == zipfile.ZIP_DEFLATED
        assert z.read(info) == source.read_bytes()


def test_zip_list_shows_entries_of_an_archive_made_elsewhere(run_tool, tmp_path):
    archive = tmp_path / "made-by-python.zip"
    with zipfile.ZipFile(archive, "w") as z:
        z.writestr(zipfile.ZipInfo("stored.txt"), b"plain", compress_type=zipfile.ZIP_STORED)
        z.writestr("deflated.txt", b"x" * 1000, compress_type=zipfile.ZIP_DEFLATED)
    lines = run_tool("zip-list", archive).stdout.splitlines()
    rows = [line.split("\t") for line in lines]
    assert [row[0] for row in rows] == ["stored.txt", "deflated.txt"]
    stored, deflated = rows
    assert stored[1:4] == ["5", "0", "no"]
    assert deflated[1] == "1000" and deflated[2] != "0" and int(deflated[4]) < 1000
    with zipfile.ZipFile(archive) as z:
        assert int(stored[5], 16) == z.getinfo("stored.txt").CRC


def test_zip_commands_fail_cleanly_on_bad_input(run_tool, tmp_path):
    text = tmp_path / "not-a-zip.zip"
    text.write_text("just text\n")
    listed = run_tool("zip-list", text, check=False)
    assert listed.returncode == 1 and "Can't open" in listed.stderr

    missing = run_tool("zip", tmp_path / "missing.txt", tmp_path / "out.zip", check=False)
    assert missing.returncode == 1

    usage = run_tool("zip", check=False)
    assert usage.returncode == 2
    assert run_tool("no-such-command", check=False).returncode == 2
