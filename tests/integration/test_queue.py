"""`tarvik queue` and `tarvik show` over submissions a real host queued on disk."""

import datetime
import json
import pathlib
import plistlib
import re

import pytest

UUID = re.compile(r"^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$")
FILE_LINE = re.compile(r"^    (\S+)\s+(\d+) bytes$")


@pytest.fixture
def queued_events(host, sdk_env):
    """Runs the test host to queue N events; returns their identifiers in the order made."""

    def queue(count):
        completed, _, _ = host("queue-events", count)
        assert completed.returncode == 0, completed.stderr.decode()
        uuids = completed.stdout.decode().split()
        assert len(uuids) == count and all(UUID.match(uuid) for uuid in uuids), uuids
        return uuids

    return queue


def queued_folder(sdk_env):
    return pathlib.Path(sdk_env["XDG_CACHE_HOME"]) / "com.tarvikhq.cache" / "events" / "Queued"


def files_on_disk(folder):
    return {str(path.relative_to(folder)): path.stat().st_size
            for path in folder.rglob("*") if path.is_file()}


def parse_queue(text):
    """The listing as (count line, {uuid: (kind, status, created, {file: size})})."""
    lines = text.splitlines()
    listed = {}
    current = None
    for line in lines[1:]:
        if line.startswith("    "):
            name, size = FILE_LINE.match(line).groups()
            current[name] = int(size)
        else:
            kind, uuid, status, created = line.split()
            current = {}
            listed[uuid] = (kind, status, created, current)
    return lines[0], listed


def displayed(value):
    """A property-list value as `tarvik show` prints it."""
    if isinstance(value, dict):
        return {key: displayed(item) for key, item in value.items()}
    if isinstance(value, list):
        return [displayed(item) for item in value]
    if isinstance(value, datetime.datetime):
        return value.strftime("%Y-%m-%dT%H:%M:%SZ")
    if isinstance(value, bytes):
        return f"<{len(value)} bytes>"
    return value


def read_plist(path):
    with open(path, "rb") as f:
        return plistlib.load(f)


def test_queue_lists_each_queued_event_with_the_files_it_has_on_disk(queued_events, run_tool,
                                                                     sdk_env):
    started = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
    uuids = queued_events(3)
    ended = datetime.datetime.now(datetime.timezone.utc)

    summary, listed = parse_queue(run_tool("queue").stdout)
    assert summary == "3 pending submissions"
    assert set(listed) == set(uuids)
    for uuid in uuids:
        kind, status, created, files = listed[uuid]
        assert (kind, status) == ("event", "Queued")
        created = datetime.datetime.strptime(created, "%Y-%m-%dT%H:%M:%SZ").replace(
            tzinfo=datetime.timezone.utc)
        assert started <= created <= ended
        folder = queued_folder(sdk_env) / uuid
        assert files == files_on_disk(folder)
        # What gathering and saving leave in every event's folder.
        assert {"httpBody.txt", "metadata.plist", "tarvik_properties.plist", "event_data.plist",
                "tarvik_attachments/user_tracking_logs.txt", "tarvik_attachments/system_logs.txt",
                "tarvik_attachments/debug_logs.txt", "tarvik_attachments/user_defaults.json",
                "tarvik_attachments/stack_trace.json"} <= set(files)
        assert files["tarvik_attachments/stack_trace.json"] > 2  # not an empty "[]"
        logs = folder / "tarvik_attachments"
        assert "tapped checkout" in (logs / "user_tracking_logs.txt").read_text()
        assert "queueing 3 events" in (logs / "debug_logs.txt").read_text()
        assert "host: queueing 3 events" in (logs / "system_logs.txt").read_text()
    # Nothing is left behind in Processing once the events are queued.
    processing = queued_folder(sdk_env).parent / "Processing"
    assert list(processing.iterdir()) == []


def test_show_prints_what_the_host_saved_for_the_event(queued_events, run_tool, sdk_env):
    uuids = queued_events(2)
    for index, uuid in enumerate(uuids):
        shown = json.loads(run_tool("show", uuid).stdout)
        folder = queued_folder(sdk_env) / uuid
        assert shown["kind"] == "event" and shown["uuid"] == uuid
        assert shown["status"] == "Queued"
        assert pathlib.Path(shown["folder"]) == folder

        assert shown["event_data"] == {"message": f"event {index}", "index": index,
                                       "checkout": {"step": "payment"}}
        assert shown["metadata"] == {"plan": "gold", "cart_items": 3}
        properties = shown["properties"]
        assert properties["TarvikUserPropertyIdentifierKey"] == "user-42"
        assert properties["apiKey"] == "test-key"
        assert properties["TarvikUserPropertySessionLength"] > 0
        assert shown["elapsed_times"] is None
        # Read independently of the SDK, the files say the same.
        for key, name in (("properties", "tarvik_properties.plist"),
                          ("metadata", "metadata.plist"), ("event_data", "event_data.plist")):
            assert shown[key] == displayed(read_plist(folder / name))


def test_show_of_an_unknown_submission_fails(queued_events, run_tool):
    queued_events(1)
    unknown = run_tool("show", "00000000-0000-4000-8000-000000000000", check=False)
    assert unknown.returncode == 1
    assert "no submission 00000000-0000-4000-8000-000000000000" in unknown.stderr
    assert unknown.stdout == ""
    assert run_tool("show", check=False).returncode == 2


def test_queue_skips_what_is_not_a_submission_folder(queued_events, run_tool, sdk_env):
    uuids = queued_events(2)
    queued = queued_folder(sdk_env)
    (queued / "notes.txt").write_text("not a submission\n")
    (queued / "x_attachments").mkdir()
    issues = queued.parent.parent / "issues" / "Queued"
    (issues / "stray.plist").write_bytes(plistlib.dumps({"a": 1}))

    summary, listed = parse_queue(run_tool("queue").stdout)
    assert summary == "2 pending submissions"
    assert set(listed) == set(uuids)


def test_queue_on_a_fresh_tree_has_nothing_pending(run_tool, sdk_env):
    result = run_tool("queue")
    assert result.stdout == "0 pending submissions\n"
    # Listing writes nothing.
    cache = pathlib.Path(sdk_env["XDG_CACHE_HOME"])
    assert not cache.exists() or files_on_disk(cache) == {}
