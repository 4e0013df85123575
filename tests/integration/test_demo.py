"""The demo host, run as a real process in a private folder tree against the collector."""

import json
import pathlib
import plistlib
import subprocess

from conftest import BUILD, cache_folder

DEMO = BUILD / "examples" / "demo" / "tarvik_demo"


def run_demo(env, *arguments):
    return subprocess.run([str(DEMO), *map(str, arguments)], env=env, capture_output=True,
                          text=True, timeout=120)


def test_demo_delivers_its_events_to_the_collector(sdk_env, collector, run_tool):
    usage = run_demo(sdk_env)
    assert usage.returncode == 2 and "usage:" in usage.stderr, "the demo needs a service"
    running = collector()
    demo = run_demo(sdk_env, "--host", f"localhost:{running.port}", "--pin",
                    running.ready["leaf_key_pin_rsa2048_prefix"], "--ca", running.ca)
    assert demo.returncode == 0, demo.stdout + demo.stderr
    assert "Starting Tarvik - version 1.0.0" in demo.stderr
    assert "demo: events sent 3, still pending 0" in demo.stdout
    assert " 2 main.cpp main " in demo.stdout and "checkout finished in 1234 ms" in demo.stdout
    # Its console output was captured into the system log (read from the file: the demo shows
    # only its last lines, which may be the SDK's own).
    cache = cache_folder(sdk_env)
    system_log = (cache / "temp_logs" / "system_logs.txt").read_text()
    assert "demo: hello from standard output" in system_log
    assert "demo: a warning on standard error (unicode: café ✓)" in system_log

    attachment = (cache.parent / "demo-cart.txt").read_bytes()
    carried = {}
    for entry in running.submissions():
        folder = pathlib.Path(entry["path"])
        fields = json.loads((folder / "fields.json").read_text())
        parts = {part["filename"]: part for part in
                 json.loads((folder / "files.json").read_text())}
        if "demo-cart.zip" in parts:
            unzipped = folder / parts["demo-cart.zip"]["unzipped_to"] / "demo-cart.txt"
            assert unzipped.read_bytes() == attachment
        carried[fields["message"]] = "demo-cart.zip" in parts
    # The attachment travels only with the events recorded with attachments.
    assert carried == {"checkout failed": True, "coupon rejected": False,
                       "payment retried": True}

    # In debug mode delivered submissions stay in Sent, each with the body it was sent as.
    events = cache / "events"
    assert not any((events / "Processing").iterdir()) and not any((events / "Queued").iterdir())
    sent = {path.name: path for path in (events / "Sent").iterdir()}
    assert set(sent) == {entry["uuid"] for entry in running.submissions()}
    for entry in running.submissions():
        assert (sent[entry["uuid"]] / "httpBody.txt").stat().st_size == entry["body_size"]

    settings_path = pathlib.Path(sdk_env["XDG_DATA_HOME"]) / "com.tarvikhq" / "config.plist"
    settings = plistlib.loads(settings_path.read_bytes())
    assert set(settings) == {"eventFeatureEnabled", "presentedIntructionCount",
                             "lastPresentedInstructionDate", "firstPresentedInstructionDate",
                             "userEmail"}
    printed = json.loads(run_tool("settings").stdout)
    assert printed["eventFeatureEnabled"] is True and printed["userEmail"] == "dana@example.com"
