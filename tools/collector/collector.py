#!/usr/bin/python3
"""Reference collector for the Tarvik SDK: an HTTPS reporting service on loopback.

Prints one JSON line on standard output once it accepts connections, then serves until
SIGTERM or SIGINT. See README.md beside this file.
"""

import argparse
import ipaddress
import json
import pathlib
import signal
import ssl
import sys
import threading

from answer_script import AnswerScript, Script, ScriptError
from http_service import CollectorServer
from submission_store import SubmissionStore
from tls_identity import KEY_MAKERS, make_identity


def parse_arguments(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--port", type=int, default=0, help="port to listen on; 0 picks one")
    parser.add_argument("--host", default="127.0.0.1", help="loopback address to listen on")
    parser.add_argument("--data-dir", required=True, type=pathlib.Path,
                        help="folder for certificates, submissions and logs")
    parser.add_argument("--api-key", help="accept only requests carrying this X-Tarvik-Api-Key")
    parser.add_argument("--leaf-key", choices=sorted(KEY_MAKERS), default="rsa2048",
                        help="key type of the server certificate")
    parser.add_argument("--script", type=pathlib.Path,
                        help="JSON file of scripted answers, as POST /_control/script takes")
    parser.add_argument("--quiet", action="store_true", help="no request log on standard error")
    arguments = parser.parse_args(argv)
    host = "127.0.0.1" if arguments.host == "localhost" else arguments.host
    try:
        loopback = ipaddress.ip_address(host).is_loopback
    except ValueError:
        loopback = False
    if not loopback:
        parser.error(f"--host must be a loopback address, not {arguments.host}")
    arguments.host = host
    return arguments


def tls_context(identity):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.load_cert_chain(identity.leaf_path, identity.leaf_key_path)
    return context


def load_script(path):
    try:
        return Script.from_json(json.loads(path.read_text(encoding="utf-8")))
    except (OSError, ValueError, ScriptError) as error:
        sys.exit(f"collector: cannot use script {path}: {error}")


def main(argv=None):
    arguments = parse_arguments(argv)
    data_dir = arguments.data_dir.resolve()
    data_dir.mkdir(parents=True, exist_ok=True)

    script = AnswerScript()
    if arguments.script:
        script.add(load_script(arguments.script))
    identity = make_identity(data_dir, arguments.leaf_key)
    server = CollectorServer((arguments.host, arguments.port), tls_context(identity),
                             SubmissionStore(data_dir), script, arguments.api_key,
                             arguments.quiet)

    stopping = threading.Event()
    for signal_number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(signal_number, lambda *_: stopping.set())
    # serve_forever runs on its own thread: shutdown() waits for it, so it cannot be called
    # from a signal handler on the serving thread.
    serving = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.1},
                               name="collector-accept")
    serving.start()

    ready = {
        "port": server.server_address[1],
        "host": arguments.host,
        "data_dir": str(data_dir),
        "ca": str(identity.ca_path),
        "leaf": str(identity.leaf_path),
        "leaf_key": str(identity.leaf_key_path),
        "leaf_key_type": arguments.leaf_key,
        **identity.pins(),
    }
    print(json.dumps(ready), flush=True)

    stopping.wait()
    server.shutdown()
    serving.join()
    server.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
