"""The reference collector, driven over real TLS with a client that trusts only its CA. What it
stores is what the delivery tests read back, so its reading of a form is checked here on its
own."""

import http.client
import io
import json
import ssl
import zipfile

BOUNDARY = "----TarvikBoundaryText"
ISSUE = "/v1/issue/create.json"


def post(running, path, body):
    """One form posted on a fresh connection; returns (status, parsed JSON answer)."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.load_verify_locations(cafile=str(running.ca))
    connection = http.client.HTTPSConnection("localhost", running.port, timeout=10,
                                             context=context)
    try:
        connection.request("POST", path, body=body, headers={
            "Content-Type": f"multipart/form-data; boundary={BOUNDARY}"})
        response = connection.getresponse()
        return response.status, json.loads(response.read())
    finally:
        connection.close()


def field_part(name, value):
    return (f"--{BOUNDARY}\r\nContent-Disposition: form-data; name=\"{name}\"\r\n\r\n".encode()
            + value.encode("utf-8") + b"\r\n")


def file_part(name, file_name, content_type, data):
    return (f"--{BOUNDARY}\r\nContent-Disposition: form-data; name=\"{name}\"; "
            f"filename=\"{file_name}\"\r\nContent-Type: {content_type}\r\n\r\n".encode("utf-8")
            + data + b"\r\n")


CLOSING = f"--{BOUNDARY}--\r\n".encode()


def test_an_issue_is_stored_with_its_fields_files_and_unzipped_parts(collector):
    running = collector()
    logs = "line one\nligne deux é\n".encode("utf-8") * 50
    archive = io.BytesIO()
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as writer:
        writer.writestr("system_logs.txt", logs)
    body = b"".join([
        field_part("uuid", "8E3C0B2A-1111-4222-8333-444455556666"),
        field_part("comments", "It broke — twice\r\nsecond line"),
        field_part("benchmark[launch]", "1.5"),
        field_part("benchmark[launch]", "2.5"),
        file_part("system_logs", "system_logs.zip", "application/zip", archive.getvalue()),
        b"\r\n",
        b"\r\n",  # a user file over the size limit leaves only this line behind
        file_part("attachments[]", "notes.txt", "text/plain", b"first"),
        file_part("attachments[]", "notes.txt", "text/plain", b"second"),
        CLOSING,
    ])
    assert post(running, ISSUE, body) == (200, {"status": "ok"})

    [entry] = running.submissions()
    assert (entry["kind"], entry["uuid"], entry["duplicate"]) == (
        "issue", "8E3C0B2A-1111-4222-8333-444455556666", False)
    assert entry["body_size"] == len(body)
    folder = running.data_dir / "submissions" / f"0001-issue-{entry['uuid']}"
    assert entry["path"] == str(folder)
    assert json.loads((folder / "fields.json").read_text(encoding="utf-8")) == {
        "uuid": entry["uuid"], "comments": "It broke — twice\r\nsecond line",
        "benchmark[launch]": ["1.5", "2.5"]}

    # The part's own trailing line break belongs to the format, the stray ones after it to the
    # data; a second file of the same name is stored beside the first.
    zipped = (folder / "files" / "system_logs.zip").read_bytes()
    assert zipped == archive.getvalue() + b"\r\n\r\n"
    assert (folder / "files" / "unzipped" / "system_logs" / "system_logs.txt").read_bytes() == \
        logs
    assert (folder / "files" / "notes.txt").read_bytes() == b"first"
    assert (folder / "files" / "notes-2.txt").read_bytes() == b"second"
    described = json.loads((folder / "files.json").read_text(encoding="utf-8"))
    assert [(item["field"], item["stored_as"]) for item in described] == [
        ("system_logs", "files/system_logs.zip"), ("attachments[]", "files/notes.txt"),
        ("attachments[]", "files/notes-2.txt")]
    assert described[0]["zip_ok"] and described[0]["zip_entries"] == ["system_logs.txt"]
    assert running.stop() == 0, "SIGTERM must end the collector cleanly"
