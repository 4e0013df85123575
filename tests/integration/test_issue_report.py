"""An issue report filed through the reporter by a real host, as a tester files one, and
delivered over TLS with the service's key pinned to the reference collector."""

import subprocess

from conftest import run_host, sdk_environment, service_arguments, stored

ISSUE_PATH = "/v1/issue/create.json"
DESCRIPTION = "The total stays at 0,00 \u20ac after adding a second item"


def decoded_pixels(jpeg_path):
    """(width, height, rows of (r, g, b)) of a JPEG, decoded by djpeg."""
    ppm = subprocess.run(["djpeg", "-pnm", str(jpeg_path)], check=True,
                         capture_output=True).stdout
    magic, width, height, depth, pixels = ppm.split(maxsplit=4)
    assert (magic, depth) == (b"P6", b"255")
    width, height = int(width), int(height)
    rows = [[tuple(pixels[(y * width + x) * 3:(y * width + x) * 3 + 3]) for x in range(width)]
            for y in range(height)]
    return width, height, rows


def test_an_issue_arrives_with_its_description_email_and_annotated_screenshot(collector,
                                                                               tmp_path):
    running = collector(api_key="issue-key")
    env = sdk_environment(tmp_path / "sdk")
    host = run_host(env, "record-events", 0, *service_arguments(running), "--api-key",
                    "issue-key", "--message", DESCRIPTION, "--report-issue", "--run", 30,
                    "--until-delivered")
    [uuid] = [line.split()[1] for _, line in host.lines if line.startswith("issue ")]
    assert host.left() == {}
    assert running.served_requests(ISSUE_PATH) == [("POST", 200)]

    [entry] = running.submissions()
    assert (entry["kind"], entry["uuid"]) == ("issue", uuid)
    fields, files, folder = stored(entry)
    assert fields["comments"] == DESCRIPTION
    # The form showed the session's e-mail, and the tester kept it.
    assert fields["user_properties[email]"] == "ann@example.com"
    assert fields["user_properties[identifier]"] == "user-42"
    assert fields["metadata[plan]"] == "gold"
    assert {"screenshot.jpg", "debug_logs.zip", "system_logs.zip",
            "user_tracking_logs.zip"} <= files.keys()

    # The host's screen at the screen's scale, with the red stroke burnt in across its middle.
    width, height, rows = decoded_pixels(folder / files["screenshot.jpg"]["stored_as"])
    assert (width, height) == (750, 1334)
    bar = rows[20][20]
    assert all(abs(a - b) < 24 for a, b in zip(bar, (64, 89, 140))), bar
    red_rows = [y for y, row in enumerate(rows)
                if sum(r > 170 and g < 110 and b < 110 for r, g, b in row) > 200]
    assert red_rows, "no red stroke in the screenshot"
    assert 0.35 * height < min(red_rows) and max(red_rows) < 0.55 * height, red_rows
