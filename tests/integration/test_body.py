"""`tarvik body`: the request the SDK sends for a queued submission, checked by an independent
multipart parser."""

import email
import email.policy

import pytest


@pytest.fixture
def queued_event(host):
    completed, _, _ = host("queue-events", 1)
    assert completed.returncode == 0, completed.stderr
    [uuid] = completed.stdout.decode().split()
    return uuid


def parse(body):
    head = b"Content-Type: multipart/form-data; boundary=----TarvikBoundaryText\r\n\r\n"
    message = email.message_from_bytes(head + body, policy=email.policy.HTTP)
    assert message.is_multipart() and not message.defects
    return list(message.iter_parts())


def test_body_shows_the_request_and_dumps_a_body_that_parses(queued_event, run_tool, tmp_path):
    dump = tmp_path / "body.bin"
    shown = run_tool("body", queued_event, "--dump", dump).stdout.splitlines()
    assert shown[0] == "POST https://api.tarvikhq.com/v1/event/save.json"
    headers = dict(line.split(": ", 1) for line in shown[1:] if ": " in line)
    assert headers["X-Tarvik-Api-Key"] == "test-key"
    assert headers["X-Tarvik-Device-Type"] == "ios"
    assert headers["Content-Type"] == "multipart/form-data; boundary=----TarvikBoundaryText"
    body = dump.read_bytes()
    assert int(headers["Content-Length"]) == len(body)
    assert body.endswith(b"------TarvikBoundaryText--\r\n")

    parts = parse(body)
    fields = {p.get_param("name", header="content-disposition"): p for p in parts}
    assert fields["uuid"].get_payload(decode=True).decode() == queued_event
    assert fields["message"].get_payload(decode=True).decode() == "event 0"
    # Built from the folder alone, as a later launch would: the list of the files gathered into
    # it lived only in the process that gathered them, so the body has no file parts.
    assert not any(p.get_param("filename", header="content-disposition") for p in parts)


def test_a_second_build_keeps_the_body_it_wrote(queued_event, run_tool, tmp_path):
    first, second = tmp_path / "first.bin", tmp_path / "second.bin"
    run_tool("body", queued_event, "--dump", first)
    run_tool("body", queued_event, "--dump", second)
    assert first.read_bytes() == second.read_bytes()


def test_body_of_an_unknown_submission_fails(run_tool):
    assert run_tool("body", "NO-SUCH-UUID", check=False).returncode == 1
    assert run_tool("body", check=False).returncode == 2
