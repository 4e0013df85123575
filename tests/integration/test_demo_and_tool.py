"""The demo host and the `tarvik` tool, run as real processes in private folder trees."""

import json
import os
import pathlib
import plistlib
import random
import subprocess
import zipfile

import pytest


def test_demo_starts_in_debug_and_leaves_the_tree_and_settings(run_demo, run_tool, sdk_env):
    demo = run_demo()
    assert demo.returncode == 0, demo.stderr
    assert "Starting Tarvik - version 1.0.0" in demo.stderr
    # Its console output was captured into the system log, and its debug record logged.
    system_log = demo.stdout.split("system log: ")[1]
    assert "    | demo: hello from standard output" in system_log
    assert "    | demo: a warning on standard error (unicode: café ✓)" in system_log
    assert " 2 main.cpp main " in demo.stdout and "checkout finished in 1234 ms" in demo.stdout

    cache = pathlib.Path(sdk_env["XDG_CACHE_HOME"]) / "com.tarvikhq.cache"
    for kind in ("issues", "events"):
        for status in ("Processing", "Queued", "Sent"):
            assert (cache / kind / status).is_dir()
    assert (cache / "temp_logs").is_dir()

    tree = run_tool("tree").stdout
    assert "com.tarvikhq.cache/" in tree and "config.plist" in tree

    settings_path = pathlib.Path(sdk_env["XDG_DATA_HOME"]) / "com.tarvikhq" / "config.plist"
    with open(settings_path, "rb") as f:
        stored = plistlib.load(f)
    assert set(stored) == {"eventFeatureEnabled", "presentedIntructionCount",
                           "lastPresentedInstructionDate", "firstPresentedInstructionDate"}
    printed = json.loads(run_tool("settings").stdout)
    assert printed["eventFeatureEnabled"] is True
    assert printed["presentedIntructionCount"] == 0


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
