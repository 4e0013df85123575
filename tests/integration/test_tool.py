"""The `tarvik` tool over submissions a real host queued on disk, checked against readers that
are not ours (plistlib, email), and how it answers wrong use."""

import datetime
import email
import email.policy
import json
import pathlib
import plistlib
import re
import time

import pytest

from conftest import EVENT_PATH, cache_folder, events_folder, free_port, parse_retry_date

FILE_LINE = re.compile(r"^    (\S+)\s+(\d+) bytes$")


def files_on_disk(folder):
    return {str(path.relative_to(folder)): path.stat().st_size
            for path in folder.rglob("*") if path.is_file()}


def parse_queue(text):
    """The listing as (count line, {uuid: (kind, status, created, {file: size})})."""
    lines = text.splitlines()
    listed, files = {}, None
    for line in lines[1:]:
        if line.startswith("    "):
            name, size = FILE_LINE.match(line).groups()
            files[name] = int(size)
        else:
            kind, uuid, status, created = line.split()
            files = {}
            listed[uuid] = (kind, status, created, files)
    return lines[0], listed


def test_queue_and_show_describe_each_queued_event_as_it_is_on_disk(queue_events, run_tool,
                                                                    sdk_env):
    assert run_tool("queue").stdout == "0 pending submissions\n"
    assert not cache_folder(sdk_env).exists(), "listing writes nothing"
    started = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
    uuids = queue_events(3)
    ended = datetime.datetime.now(datetime.timezone.utc)
    # What is not a submission folder is skipped.
    queued = events_folder(sdk_env, "Queued")
    (queued / "notes.txt").write_text("not a submission\n")
    (queued / "x_attachments").mkdir()
    (queued.parent.parent / "issues" / "Queued" / "stray.plist").write_bytes(
        plistlib.dumps({"a": 1}))

    summary, listed = parse_queue(run_tool("queue").stdout)
    assert summary == "3 pending submissions"
    assert set(listed) == set(uuids)
    for uuid in uuids:
        kind, status, created, files = listed[uuid]
        assert (kind, status) == ("event", "Queued")
        created = datetime.datetime.strptime(created, "%Y-%m-%dT%H:%M:%SZ").replace(
            tzinfo=datetime.timezone.utc)
        assert started <= created <= ended
        assert files == files_on_disk(queued / uuid)
        # What gathering and saving leave in every event's folder.
        assert {"httpBody.txt", "metadata.plist", "tarvik_properties.plist", "event_data.plist",
                "tarvik_attachments/user_tracking_logs.txt", "tarvik_attachments/system_logs.txt",
                "tarvik_attachments/debug_logs.txt", "tarvik_attachments/user_defaults.json",
                "tarvik_attachments/stack_trace.json"} <= set(files)
    assert list(queued.parent.joinpath("Processing").iterdir()) == []

    shown = json.loads(run_tool("show", uuids[0]).stdout)
    folder = queued / uuids[0]
    assert (shown["kind"], shown["uuid"], shown["status"]) == ("event", uuids[0], "Queued")
    assert pathlib.Path(shown["folder"]) == folder
    assert shown["event_data"]["message"].startswith("host event ")
    assert shown["properties"]["apiKey"] == "test-key" and shown["elapsed_times"] is None
    # Read independently of the SDK, the files say the same.
    for key, name in (("properties", "tarvik_properties.plist"),
                      ("metadata", "metadata.plist"), ("event_data", "event_data.plist")):
        assert shown[key] == plistlib.loads((folder / name).read_bytes())


def test_body_shows_the_request_and_dumps_the_same_body_each_time(queue_events, run_tool,
                                                                  tmp_path):
    [uuid] = queue_events(1)
    first, second = tmp_path / "first.bin", tmp_path / "second.bin"
    shown = run_tool("body", uuid, "--dump", first).stdout.splitlines()
    assert shown[0] == "POST https://api.tarvikhq.com/v1/event/save.json"
    headers = dict(line.split(": ", 1) for line in shown[1:] if ": " in line)
    assert headers["X-Tarvik-Api-Key"] == "test-key"
    assert headers["Content-Type"] == "multipart/form-data; boundary=----TarvikBoundaryText"
    body = first.read_bytes()
    assert int(headers["Content-Length"]) == len(body)
    assert body.endswith(b"------TarvikBoundaryText--\r\n")
    message = email.message_from_bytes(f"Content-Type: {headers['Content-Type']}\r\n\r\n"
                                       .encode() + body, policy=email.policy.HTTP)
    assert message.is_multipart() and not message.defects
    fields = {part.get_param("name", header="content-disposition"): part.get_payload(decode=True)
              for part in message.iter_parts()}
    assert (fields["uuid"], fields["message"]) == (uuid.encode(), b"host event 0")
    run_tool("body", uuid, "--dump", second)
    assert second.read_bytes() == body


def test_send_keeps_a_submission_that_was_not_answered_for_good(queue_events, run_tool,
                                                                collector, sdk_env):
    [uuid] = queue_events(1)
    retry_file = events_folder(sdk_env, "Queued") / uuid / "retryDate.txt"
    closed = run_tool("send", uuid, "--host", f"127.0.0.1:{free_port()}", check=False)
    assert closed.returncode == 1 and closed.stdout.startswith("no response ("), closed.stdout
    assert not retry_file.exists()

    running = collector(script={"rules": [{"path": EVENT_PATH, "status": 500}]})
    before = time.time()
    failed = run_tool("send", uuid, "--host", f"localhost:{running.port}", "--ca-bundle",
                      running.ca, "--pin", running.ready["leaf_key_pin_rsa2048_prefix"],
                      check=False)
    after = time.time()
    assert failed.returncode == 1
    assert failed.stdout.startswith("HTTP 500: kept in the queue; next try after ")
    retry_text = retry_file.read_text()
    assert retry_text in failed.stdout
    assert before + 180 - 1 <= parse_retry_date(retry_text, sdk_env) <= after + 180
    assert running.served_requests() == [("POST", 500)] and running.submissions() == []


@pytest.mark.parametrize("arguments, status, complaint", [
    (["show", "NO-SUCH-UUID"], 1, "no submission NO-SUCH-UUID"),
    (["body", "NO-SUCH-UUID"], 1, "no submission NO-SUCH-UUID"),
    (["send", "NO-SUCH-UUID"], 1, "no submission NO-SUCH-UUID"),
    (["send"], 2, "usage: tarvik send UUID"),
    (["send", "X", "--pin", "short"], 2, "a pin is not the base64 text of a SHA-256 digest"),
    (["settings"], 1, "no settings file"),
    (["zip", "no-such-file.txt", "out.zip"], 1, "cannot read no-such-file.txt"),
    (["no-such-command"], 2, "unknown command 'no-such-command'"),
])
def test_wrong_use_fails_and_says_why(run_tool, arguments, status, complaint):
    result = run_tool(*arguments, check=False)
    assert (result.returncode, result.stdout) == (status, "")
    assert complaint in result.stderr


def test_zipping_a_file_into_itself_is_refused_and_leaves_it_whole(run_tool, tmp_path):
    source = tmp_path / "same.txt"
    source.write_text("keep me")
    result = run_tool("zip", source, tmp_path / "." / "same.txt", check=False)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"tarvik: Can't zip '{source}' into itself\n"
    assert source.read_text() == "keep me"


def test_canvas_draws_strokes_as_touches_and_refuses_what_it_cannot_draw(run_tool, tmp_path):
    import cairo

    strokes = tmp_path / "strokes.json"
    strokes.write_text(json.dumps({"strokes": [
        {"color": [61, 46, 230, 255], "points": [[20, 20]]},
        {"color": [230, 58, 46, 128], "eraser": False, "points": [[10, 70], [90, 70]]},
    ]}))
    out = tmp_path / "canvas.png"
    run_tool("canvas", "--size", "100x80", "--scale", "2", "--strokes", strokes, "--out", out)
    image = cairo.ImageSurface.create_from_png(str(out))
    assert (image.get_width(), image.get_height()) == (200, 160)
    pixels, stride = image.get_data(), image.get_stride()

    def bgra(x, y):  # premultiplied, as cairo keeps them
        return tuple(pixels[y * stride + x * 4:y * stride + x * 4 + 4])

    assert bgra(40, 40) == (230, 46, 61, 255)  # the tap's dot in the blue pen
    assert bgra(40 + 15, 40)[3] == 0  # 7.5 points from its centre
    assert bgra(100, 140)[3] == 128  # the half-transparent line
    assert bgra(199, 0)[3] == 0

    def refused(document, *options):
        strokes.write_text(document)
        result = run_tool("canvas", *(options or ("--size", "100x80", "--scale", "2")),
                          "--strokes", strokes, "--out", out, check=False)
        assert (result.returncode, result.stdout) == (1, ""), result.stderr
        return result.stderr

    assert "is not JSON" in refused("{strokes")
    assert "stroke 1 has no points" in refused('{"strokes": [{"points": []}]}')
    assert "colour components go from 0 to 255" in refused(
        '{"strokes": [{"color": [0, 0, 300, 255], "points": [[1, 1]]}]}')
    assert "the size must be WIDTHxHEIGHT, both positive" in refused(
        '{"strokes": []}', "--size", "0x80", "--scale", "2")
    assert "the scale must be a positive number" in refused(
        '{"strokes": []}', "--size", "100x80", "--scale", "-1")
    usage = run_tool("canvas", "--size", "100x80", check=False)
    assert usage.returncode == 2 and "usage: tarvik canvas" in usage.stderr
