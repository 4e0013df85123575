"""An issue report filed through the reporter by a real host, as a tester files one, and
delivered over TLS with the service's key pinned to the reference collector."""

import pathlib
import subprocess

import pytest

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


def shake_trigger(env, root):
    """A virtual accelerometer at rest; the host shakes it by writing its x raw file."""
    device = root / "sys" / "bus" / "iio" / "devices" / "iio:device0"
    device.mkdir(parents=True)
    for name, text in {"in_accel_x_raw": "0", "in_accel_y_raw": "0", "in_accel_z_raw": "1000",
                       "in_accel_scale": "0.0098"}.items():
        (device / name).write_text(text + "\n")
    env["TARVIK_SYSFS_ROOT"] = str(root / "sys")
    return ["--shake-x", device / "in_accel_x_raw"]


def screenshot_trigger(env, root):
    """A pictures folder named in the user's XDG folders, which does not exist yet; the host
    saves a screenshot in its Screenshots subfolder, making both."""
    config = pathlib.Path(env["XDG_CONFIG_HOME"])
    config.mkdir(parents=True, exist_ok=True)
    (config / "user-dirs.dirs").write_text('XDG_PICTURES_DIR="$HOME/Bilder"\n')
    return ["--screenshot-into", pathlib.Path(env["HOME"]) / "Bilder" / "Screenshots"]


@pytest.mark.parametrize("trigger", [shake_trigger, screenshot_trigger])
def test_a_shake_or_a_screenshot_opens_the_reporter_by_itself(collector, tmp_path, trigger):
    running = collector(api_key="trigger-key")
    env = sdk_environment(tmp_path / "sdk")
    trigger_arguments = trigger(env, tmp_path)
    host = run_host(env, "record-events", 0, *service_arguments(running), "--api-key",
                    "trigger-key", "--message", DESCRIPTION, "--report-issue",
                    *trigger_arguments, "--run", 30, "--until-delivered")
    [uuid] = [line.split()[1] for _, line in host.lines if line.startswith("issue ")]
    [entry] = running.submissions()
    assert (entry["kind"], entry["uuid"]) == ("issue", uuid)
    fields, files, folder = stored(entry)
    assert fields["comments"] == DESCRIPTION
    assert decoded_pixels(folder / files["screenshot.jpg"]["stored_as"])[:2] == (750, 1334)
