"""Public-key pinning over real TLS, against certificates the reference collector makes when it
starts: `tarvik send` sends a queued event through the SDK's own submission operation, with the
service's domain pinned as a host application pins it. The pins are computed here from the
certificates, independently of the collector's own."""

import base64
import hashlib
import socket
import subprocess

import pytest
from cryptography import x509
from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import rsa

from conftest import HOST, RunningCollector, events_folder, wait_until

# The DER SubjectPublicKeyInfo of an RSA 2048 key up to its key bits: a pinned domain hashes
# every key type with it.
RSA_2048_HEADER = bytes.fromhex("30820122300d06092a864886f70d01010105000382010f00")
# The IPv4-mapped form of 127.0.0.1 reaches the collector, but its certificate names only
# localhost, 127.0.0.1 and ::1.
MAPPED = "::ffff:127.0.0.1"
DELIVERED = "HTTP 200: answered for good; removed from the queue\n"
REFUSED = "no response (the server's trust was refused for localhost): kept in the queue\n"

# Each case: the server asked (the genuine one, or an interceptor with a certificate of its
# own), the host name it is asked by, which of the genuine server's keys is pinned, the CAs
# trusted, and what `tarvik send` prints.
CASES = {
    "pinned leaf key": ("genuine", "localhost", "leaf.pem", "genuine", DELIVERED),
    "pinned CA key, by address": ("genuine", "127.0.0.1", "ca.pem", "genuine", DELIVERED),
    "interceptor with a trusted CA": ("interceptor", "localhost", "leaf.pem", "both", REFUSED),
    "chain from an untrusted CA": ("genuine", "localhost", "leaf.pem", "interceptor", REFUSED),
    "host name not in the certificate": ("genuine", f"[{MAPPED}]", "leaf.pem", "genuine",
                                         "no response (SSL certificate problem: IP address "
                                         "mismatch): kept in the queue\n"),
}


def pin(certificate_path):
    """SHA-256 of the RSA 2048 header and the certificate's bare key bits, as base64."""
    key = x509.load_pem_x509_certificate(certificate_path.read_bytes()).public_key()
    if isinstance(key, rsa.RSAPublicKey):
        bits = key.public_bytes(serialization.Encoding.DER, serialization.PublicFormat.PKCS1)
    else:
        bits = key.public_bytes(serialization.Encoding.X962,
                                serialization.PublicFormat.UncompressedPoint)
    return base64.b64encode(hashlib.sha256(RSA_2048_HEADER + bits).digest()).decode()


def mapped_address_works():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen()
        try:
            socket.create_connection((MAPPED, listener.getsockname()[1]), timeout=5).close()
        except OSError:
            return False
    return True


@pytest.fixture(scope="module", params=["rsa2048", "rsa4096", "ec256", "ec384"])
def servers(request, tmp_path_factory):
    """A genuine server and an interceptor whose leaf keys are of one type, for every case."""
    root = tmp_path_factory.mktemp(request.param)
    both = {name: RunningCollector(root / name, leaf_key=request.param)
            for name in ("genuine", "interceptor")}
    yield both
    for running in both.values():
        running.stop()


@pytest.mark.parametrize("case", CASES)
def test_the_pinning_decision_is_made_in_the_handshake(servers, queue_events, run_tool, sdk_env,
                                                       tmp_path, case):
    asked, host, pinned, trusted, printed = CASES[case]
    if MAPPED in host and not mapped_address_works():
        pytest.skip(f"{MAPPED} does not reach IPv4 listeners here")
    server, genuine = servers[asked], servers["genuine"]
    cas = {"genuine": [genuine], "interceptor": [servers["interceptor"]],
           "both": servers.values()}
    bundle = tmp_path / "trusted.pem"
    bundle.write_bytes(b"".join(running.ca.read_bytes() for running in cas[trusted]))
    [uuid] = queue_events(1)
    stored, served = len(server.submissions()), len(server.served_requests())
    handshakes = server.failed_handshakes()

    sent = run_tool("send", uuid, "--host", f"{host}:{server.port}", "--pin",
                    pin(genuine.data_dir / pinned), "--ca-bundle", bundle, check=False)
    assert sent.stdout == printed, sent.stderr
    if printed == DELIVERED:
        assert server.submissions()[-1]["uuid"] == uuid
        assert not (events_folder(sdk_env, "Queued") / uuid).exists()
    else:
        # Refused in the handshake: the server never sees a byte of the request, and without
        # an answer the event waits in the queue for a retry pass to date it.
        assert wait_until(lambda: server.failed_handshakes() > handshakes, 10), server.log()
        assert len(server.served_requests()) == served
        assert len(server.submissions()) == stored
        assert not (events_folder(sdk_env, "Queued") / uuid / "retryDate.txt").exists()


# ---- the transport itself: the test host's `fetch` scenario

def test_a_server_silent_for_longer_than_the_time_out_gives_no_response(collector, sdk_env):
    config = "/v1/event/config.json"
    running = collector(script={"rules": [{"path": config, "delay": 4},
                                          {"path": config, "delay": 1}]})

    def fetch(timeout):
        return subprocess.run([str(HOST), "fetch", f"https://localhost:{running.port}{config}",
                               running.ca, str(timeout)], env=sdk_env, capture_output=True,
                              text=True, timeout=60).stdout

    assert fetch(1).startswith("no response: ")
    # A pause shorter than the time-out is waited out.
    assert fetch(3) == "200\n"
