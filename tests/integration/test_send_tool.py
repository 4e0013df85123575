"""`tarvik send`: one queued submission sent at once to the reference collector."""

import datetime
import json
import pathlib
import socket

import pytest


@pytest.fixture
def queued_event(host, sdk_env):
    completed, _, _ = host("queue-events", 1)
    assert completed.returncode == 0, completed.stderr.decode()
    return completed.stdout.decode().split()[0]


def queued_folder(sdk_env, uuid):
    return pathlib.Path(sdk_env["XDG_CACHE_HOME"]) / "com.tarvikhq.cache" / "events" / \
        "Queued" / uuid


def service(running):
    return ["--host", f"localhost:{running.port}",
            "--pin", running.ready["leaf_key_pin_rsa2048_prefix"], "--ca-bundle", running.ca]


def test_a_delivered_submission_leaves_the_queue(queued_event, run_tool, collector, sdk_env):
    running = collector()
    result = run_tool("send", queued_event, *service(running))
    assert result.stdout == "HTTP 200: answered for good; removed from the queue\n"
    assert not queued_folder(sdk_env, queued_event).exists()
    stored = running.submissions()
    assert [entry["uuid"] for entry in stored] == [queued_event]


def test_a_server_error_keeps_it_queued_with_a_retry_time(queued_event, run_tool, collector,
                                                         sdk_env, tmp_path):
    script = tmp_path / "script.json"
    script.write_text(json.dumps({"rules": [{"path": "/v1/event/save.json", "status": 500}]}))
    running = collector(script=script)
    before = datetime.datetime.now()
    result = run_tool("send", queued_event, *service(running), check=False)
    assert result.returncode == 1
    assert result.stdout.startswith("HTTP 500: kept in the queue; next try after ")
    retry_text = (queued_folder(sdk_env, queued_event) / "retryDate.txt").read_text()
    retry = datetime.datetime.strptime(retry_text, "%m/%d/%Y %H:%M:%S")
    assert 178 <= (retry - before).total_seconds() <= 182
    assert retry_text in result.stdout


def test_an_unpinned_key_is_no_response_and_nothing_reaches_the_server(queued_event, run_tool,
                                                                      collector, sdk_env):
    running = collector()
    other = collector(name="other", leaf_key="ec256")
    arguments = ["--host", f"localhost:{running.port}",
                 "--pin", other.ready["leaf_key_pin_rsa2048_prefix"], "--ca-bundle", running.ca]
    result = run_tool("send", queued_event, *arguments, check=False)
    assert result.returncode == 1
    assert result.stdout.startswith("no response (the server's trust was refused for localhost)")
    assert queued_folder(sdk_env, queued_event).exists()
    assert running.submissions() == []


def test_a_closed_port_is_no_response(queued_event, run_tool, sdk_env):
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    result = run_tool("send", queued_event, "--host", f"127.0.0.1:{port}", check=False)
    assert result.returncode == 1
    assert result.stdout.startswith("no response (")
    assert queued_folder(sdk_env, queued_event).exists()


def test_wrong_use_is_explained(run_tool):
    result = run_tool("send", check=False)
    assert result.returncode == 2
    assert "usage: tarvik send UUID" in result.stderr
    result = run_tool("send", "NO-SUCH-UUID", check=False)
    assert result.returncode == 1
    assert "no submission NO-SUCH-UUID" in result.stderr
    result = run_tool("send", "X", "--pin", "short", check=False)
    assert result.returncode == 2
