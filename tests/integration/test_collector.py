"""The reference collector, driven over real TLS with a client that trusts only its CA."""

import base64
import hashlib
import http.client
import io
import json
import socket
import ssl
import subprocess
import time
import zipfile

import pytest
from cryptography import x509
from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import ec, rsa

from conftest import COLLECTOR, DEBIAN_PYTHON

API_KEY = "test-api-key"
BOUNDARY = "----TarvikBoundaryText"
ISSUE = "/v1/issue/create.json"
EVENT = "/v1/event/save.json"
CONFIG = "/v1/event/config.json"
DEVICE_HEADERS = {
    "X-Tarvik-Device-Type": "ios",
    "X-Tarvik-Device-Identifier": "5A1B2C3D-0000-4000-8000-000000000001",
    "X-Tarvik-Device-Name": "test-host",
}


# ---- a client and request bodies in the SDK's own wire format

def trusting_only(ca_path):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.load_verify_locations(cafile=str(ca_path))
    return context


def request(running, method, path, body=None, api_key=API_KEY, headers=None, context=None,
            host="localhost"):
    """One request on a fresh connection; returns (status, parsed JSON or raw bytes)."""
    connection = http.client.HTTPSConnection(host, running.port, timeout=10,
                                             context=context or trusting_only(running.ca))
    all_headers = dict(DEVICE_HEADERS, **(headers or {}))
    if api_key is not None:
        all_headers["X-Tarvik-Api-Key"] = api_key
    if body is not None:
        all_headers["Content-Type"] = f"multipart/form-data; boundary={BOUNDARY}"
    try:
        connection.request(method, path, body=body, headers=all_headers)
        response = connection.getresponse()
        payload = response.read()
    finally:
        connection.close()
    try:
        return response.status, json.loads(payload)
    except ValueError:
        return response.status, payload


def field_part(name, value):
    return (f"--{BOUNDARY}\r\nContent-Disposition: form-data; name=\"{name}\"\r\n\r\n".encode()
            + value.encode("utf-8") + b"\r\n")


def file_part(name, file_name, content_type, data):
    return (f"--{BOUNDARY}\r\nContent-Disposition: form-data; name=\"{name}\"; "
            f"filename=\"{file_name}\"\r\nContent-Type: {content_type}\r\n\r\n".encode("utf-8")
            + data + b"\r\n")


def closing():
    return f"--{BOUNDARY}--\r\n".encode()


def zipped(entry_name, data):
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr(entry_name, data)
    return buffer.getvalue()


def minimal_body(uuid, **fields):
    parts = [field_part("uuid", uuid)] + [field_part(name, value) for name, value in fields.items()]
    return b"".join(parts) + closing()


def post_script(running, script):
    status, answer = _post_json(running, "/_control/script", script)
    assert status == 200, answer
    return answer


def _post_json(running, path, document):
    connection = http.client.HTTPSConnection("localhost", running.port, timeout=10,
                                             context=trusting_only(running.ca))
    try:
        connection.request("POST", path, body=json.dumps(document).encode(),
                           headers={"Content-Type": "application/json"})
        response = connection.getresponse()
        return response.status, json.loads(response.read())
    finally:
        connection.close()


def _get_state(running):
    status, state = request(running, "GET", "/_control/state", api_key=None)
    assert status == 200
    return state


# ---- ingest

def test_issue_is_stored_with_fields_files_and_unzipped_parts(collector):
    running = collector(api_key=API_KEY)
    screenshot = bytes(range(256)) * 8 + f"\r\n--{BOUNDARY[:-1]}\r\r\n\n".encode()
    logs = "line one\nligne deux é\n".encode("utf-8") * 50
    body = b"".join([
        field_part("uuid", "8E3C0B2A-1111-4222-8333-444455556666"),
        field_part("reported_date", "2026-11-21T09:00:00Z"),
        field_part("comments", "It broke — twice\r\nsecond line"),
        field_part("user_properties[app_name]", "Demo"),
        field_part("benchmark[launch]", "1.5"),
        field_part("benchmark[launch]", "2.5"),
        file_part("screenshot", "screenshot.jpg", "image/jpeg", screenshot),
        b"\r\n",
        file_part("system_logs", "system_logs.zip", "application/zip",
                  zipped("system_logs.txt", logs)),
        b"\r\n",
        b"\r\n",  # a user file over the size limit leaves only this line behind
        file_part("attachments[]", "notes.txt", "text/plain", b"first"),
        b"\r\n",
        file_part("attachments[]", "notes.txt", "text/plain", b"second"),
        b"\r\n",
        closing(),
    ])

    assert request(running, "POST", ISSUE, body) == (200, {"status": "ok"})

    [entry] = running.submissions()
    assert (entry["kind"], entry["uuid"], entry["duplicate"]) == (
        "issue", "8E3C0B2A-1111-4222-8333-444455556666", False)
    assert entry["body_size"] == len(body)
    assert entry["files"] == [
        {"field": "screenshot", "filename": "screenshot.jpg"},
        {"field": "system_logs", "filename": "system_logs.zip"},
        {"field": "attachments[]", "filename": "notes.txt"},
        {"field": "attachments[]", "filename": "notes.txt"},
    ]
    folder = running.data_dir / "submissions" / f"0001-issue-{entry['uuid']}"
    assert entry["path"] == str(folder)

    fields = json.loads((folder / "fields.json").read_text(encoding="utf-8"))
    assert fields == {
        "uuid": entry["uuid"],
        "reported_date": "2026-11-21T09:00:00Z",
        "comments": "It broke — twice\r\nsecond line",
        "user_properties[app_name]": "Demo",
        "benchmark[launch]": ["1.5", "2.5"],
    }
    headers = json.loads((folder / "headers.json").read_text(encoding="utf-8"))
    assert headers["X-Tarvik-Device-Name"] == "test-host"
    assert headers["X-Tarvik-Api-Key"] == API_KEY

    # The part's own trailing line break belongs to the format, the stray one after it to the data.
    assert (folder / "files" / "screenshot.jpg").read_bytes() == screenshot + b"\r\n"
    with zipfile.ZipFile(folder / "files" / "system_logs.zip") as archive:
        assert archive.read("system_logs.txt") == logs
    assert (folder / "files" / "unzipped" / "system_logs" / "system_logs.txt").read_bytes() == logs
    assert (folder / "files" / "notes.txt").read_bytes() == b"first\r\n"
    assert (folder / "files" / "notes-2.txt").read_bytes() == b"second\r\n"

    described = json.loads((folder / "files.json").read_text(encoding="utf-8"))
    zip_entry = next(item for item in described if item["field"] == "system_logs")
    assert zip_entry["zip_ok"] and zip_entry["zip_entries"] == ["system_logs.txt"]
    assert {item["stored_as"] for item in described} == {
        "files/screenshot.jpg", "files/system_logs.zip", "files/notes.txt", "files/notes-2.txt"}

    assert running.stop() == 0, "SIGTERM must end the collector cleanly"


def test_event_is_stored_and_a_repeated_uuid_is_marked_duplicate(collector):
    running = collector()
    body = minimal_body("EVENT-1", message="boom", created_date="2026-11-21T09:00:00Z")
    assert request(running, "POST", EVENT, body)[0] == 200
    assert request(running, "POST", EVENT, body)[0] == 200
    assert request(running, "POST", ISSUE, minimal_body("ISSUE-1"))[0] == 200

    entries = running.submissions()
    assert [(e["kind"], e["uuid"], e["duplicate"]) for e in entries] == [
        ("event", "EVENT-1", False), ("event", "EVENT-1", True), ("issue", "ISSUE-1", False)]
    assert len({e["path"] for e in entries}) == 3, "a repeated delivery is still stored apart"
    assert _get_state(running)["stored"] == {"issue": 1, "event": 2}


def test_a_restart_on_the_same_folder_keeps_numbering_and_duplicate_detection(collector):
    first = collector(name="kept")
    assert request(first, "POST", EVENT, minimal_body("AGAIN-1"))[0] == 200
    assert first.stop() == 0
    second = collector(name="kept")
    assert request(second, "POST", EVENT, minimal_body("AGAIN-1"))[0] == 200
    assert [(entry["sequence"], entry["duplicate"]) for entry in second.submissions()] == [
        (1, False), (2, True)]
    assert (second.data_dir / "submissions" / "0002-event-AGAIN-1" / "fields.json").exists()


def test_wrong_or_missing_api_key_is_refused_and_nothing_is_stored(collector):
    running = collector(api_key=API_KEY)
    body = minimal_body("REFUSED-1")
    for key in ("wrong-key", None):
        status, answer = request(running, "POST", ISSUE, body, api_key=key)
        assert status == 401 and "error" in answer
        assert request(running, "GET", CONFIG, api_key=key)[0] == 401
    assert running.submissions() == []
    assert not any((running.data_dir / "submissions").iterdir())
    assert [entry["status"] for entry in running.config_requests()] == [401, 401]


def test_bodies_that_are_not_forms_are_refused(collector):
    running = collector()
    cut_short = minimal_body("CUT-1")[:-len(closing())]
    no_uuid = field_part("message", "hello") + closing()
    for body in (cut_short, b"not a form at all", no_uuid):
        status, answer = request(running, "POST", EVENT, body)
        assert status == 400, body

    connection = http.client.HTTPSConnection("localhost", running.port, timeout=10,
                                             context=trusting_only(running.ca))
    connection.putrequest("POST", EVENT)
    connection.putheader("Content-Type", f"multipart/form-data; boundary={BOUNDARY}")
    connection.endheaders()
    assert connection.getresponse().status == 411
    connection.close()
    assert running.submissions() == []


# ---- scripted answers

def test_scripted_failures_then_a_late_event_object_then_the_normal_answer(collector):
    running = collector()
    event = {"enabled": False, "check_interval": 5, "ignored": {"messages": ["ABC"]}}
    post_script(running, {"rules": [
        {"path": EVENT, "status": 500, "times": 2},
        {"path": EVENT, "event": event, "delay": 0.6},
    ]})
    assert [rule["times"] for rule in _get_state(running)["remaining_rules"]] == [2, 1]

    body = minimal_body("RETRIED-1")
    assert request(running, "POST", EVENT, body)[0] == 500
    assert running.submissions() == [], "a failed answer stores nothing"
    assert request(running, "POST", EVENT, body)[0] == 500
    started = time.monotonic()
    assert request(running, "POST", EVENT, body) == (200, {"status": "ok", "event": event})
    assert time.monotonic() - started >= 0.6
    assert request(running, "POST", EVENT, body) == (200, {"status": "ok"})
    assert [entry["duplicate"] for entry in running.submissions()] == [False, True]
    assert _get_state(running)["remaining_rules"] == []


def test_rules_wait_per_path_and_reset_clears_them(collector):
    running = collector()
    post_script(running, {"rules": [{"path": ISSUE, "status": 503, "times": 3}]})
    assert request(running, "POST", EVENT, minimal_body("OTHER-PATH"))[0] == 200
    assert request(running, "POST", ISSUE, minimal_body("ISSUE-1"))[0] == 503

    status, answer = _post_json(running, "/_control/reset", {})
    assert status == 200
    assert _get_state(running)["remaining_rules"] == []
    assert request(running, "POST", ISSUE, minimal_body("ISSUE-1"))[0] == 200

    status, answer = _post_json(running, "/_control/script", {"rules": [{"path": ISSUE,
                                                                         "times": 0}]})
    assert status == 400 and "times" in answer["error"]


def test_scripted_drop_and_an_answer_that_is_not_json(collector):
    running = collector()
    post_script(running, {"rules": [{"path": ISSUE, "drop": True},
                                    {"path": ISSUE, "body": "<html>oops</html>"}]})
    with pytest.raises(ConnectionError):
        request(running, "POST", ISSUE, minimal_body("DROPPED-1"))
    assert running.submissions() == []
    assert request(running, "POST", ISSUE, minimal_body("DROPPED-1")) == (
        200, b"<html>oops</html>")
    assert [entry["uuid"] for entry in running.submissions()] == ["DROPPED-1"]


# ---- event configuration

def test_configuration_document_is_served_and_each_request_is_logged(collector, tmp_path):
    muted = hashlib.md5("Muted title".encode()).hexdigest().upper()
    script = tmp_path / "script.json"
    script.write_text(json.dumps({"config": {"enabled": False, "check_interval": 30,
                                             "ignored": {"messages": [muted]}},
                                  "rules": [{"path": CONFIG, "status": 502}]}))
    running = collector(api_key=API_KEY, script=script)
    path = f"{CONFIG}?app_bundle_identifier=com.example.demo&app_name=Demo%20App"

    assert request(running, "GET", path)[0] == 502
    assert request(running, "GET", path) == (
        200, {"enabled": False, "check_interval": 30, "ignored": {"messages": [muted]}})
    post_script(running, {"config": {"enabled": True, "check_interval": 15, "ignored": {}}})
    assert request(running, "GET", path)[1]["enabled"] is True

    logged = running.config_requests()
    assert [entry["status"] for entry in logged] == [502, 200, 200]
    assert logged[0]["query"] == {"app_bundle_identifier": "com.example.demo",
                                  "app_name": "Demo App"}
    assert logged[0]["headers"]["X-Tarvik-Device-Identifier"] == \
        DEVICE_HEADERS["X-Tarvik-Device-Identifier"]
    assert _get_state(running)["config_requests"] == 3


# ---- TLS identity and pins

def sha256_base64(data):
    return base64.b64encode(hashlib.sha256(data).digest()).decode()


def bare_bits(public_key):
    if isinstance(public_key, rsa.RSAPublicKey):
        return public_key.public_bytes(serialization.Encoding.DER,
                                       serialization.PublicFormat.PKCS1)
    return public_key.public_bytes(serialization.Encoding.X962,
                                   serialization.PublicFormat.UncompressedPoint)


def spki(public_key):
    return public_key.public_bytes(serialization.Encoding.DER,
                                   serialization.PublicFormat.SubjectPublicKeyInfo)


RSA_2048_HEADER = bytes.fromhex("30820122300d06092a864886f70d01010105000382010f00")


@pytest.mark.parametrize("leaf_key, expected_type, size", [
    ("rsa2048", rsa.RSAPublicKey, 2048),
    ("rsa4096", rsa.RSAPublicKey, 4096),
    ("ec256", ec.EllipticCurvePublicKey, 256),
    ("ec384", ec.EllipticCurvePublicKey, 384),
])
def test_each_leaf_key_type_serves_tls_and_prints_matching_pins(collector, leaf_key,
                                                                expected_type, size):
    running = collector(leaf_key=leaf_key)
    ready = running.ready
    leaf = x509.load_pem_x509_certificate(open(ready["leaf"], "rb").read())
    ca = x509.load_pem_x509_certificate(running.ca.read_bytes())
    assert isinstance(leaf.public_key(), expected_type) and leaf.public_key().key_size == size
    names = leaf.extensions.get_extension_for_class(x509.SubjectAlternativeName).value
    assert "localhost" in names.get_values_for_type(x509.DNSName)
    assert "127.0.0.1" in {str(ip) for ip in names.get_values_for_type(x509.IPAddress)}

    assert ready["leaf_pin"] == sha256_base64(spki(leaf.public_key()))
    assert ready["ca_pin"] == sha256_base64(spki(ca.public_key()))
    assert ready["leaf_key_pin_rsa2048_prefix"] == sha256_base64(
        RSA_2048_HEADER + bare_bits(leaf.public_key()))
    assert ready["ca_key_pin_rsa2048_prefix"] == sha256_base64(
        RSA_2048_HEADER + bare_bits(ca.public_key()))
    if leaf_key == "rsa2048":
        assert ready["leaf_pin"] == ready["leaf_key_pin_rsa2048_prefix"]
    else:
        assert ready["leaf_pin"] != ready["leaf_key_pin_rsa2048_prefix"]

    # The server presents this very leaf, by name and by address.
    for host in ("localhost", "127.0.0.1"):
        context = trusting_only(running.ca)
        with context.wrap_socket(socket.create_connection((host, running.port), timeout=10),
                                 server_hostname=host) as tls:
            assert tls.version() in ("TLSv1.2", "TLSv1.3")
            assert tls.getpeercert(binary_form=True) == leaf.public_bytes(
                serialization.Encoding.DER)
    assert request(running, "GET", CONFIG)[0] == 200


def test_a_client_with_default_trust_refuses_the_collector(collector):
    running = collector()
    with pytest.raises(ssl.SSLCertVerificationError):
        request(running, "GET", CONFIG, context=ssl.create_default_context())
    # The refused handshake does not disturb the next client, who gets the default document.
    assert request(running, "GET", CONFIG) == (
        200, {"enabled": True, "check_interval": 15, "ignored": {}})


def test_only_loopback_addresses_are_served(tmp_path):
    result = subprocess.run([DEBIAN_PYTHON, str(COLLECTOR), "--host", "0.0.0.0", "--data-dir",
                             str(tmp_path / "data")], capture_output=True, text=True, timeout=30)
    assert result.returncode != 0 and "loopback" in result.stderr
    assert result.stdout == ""
