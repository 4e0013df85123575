"""The collector's HTTPS endpoints: submission ingest, event configuration, test control."""

import http.server
import ipaddress
import json
import socket
import socketserver
import ssl
import sys
import time
import urllib.parse

from answer_script import Script, ScriptError
from form_body import FormBodyError, parse_form_body

SUBMISSION_KINDS = {"/v1/issue/create.json": "issue", "/v1/event/save.json": "event"}
CONFIG_PATH = "/v1/event/config.json"
CONTROL_PREFIX = "/_control/"
MAX_BODY_SIZE = 256 * 1024 * 1024
HANDSHAKE_TIMEOUT = 10
IDLE_TIMEOUT = 60


class CollectorServer(http.server.ThreadingHTTPServer):
    """Accepts plain TCP and runs the TLS handshake on the request's own thread, so one slow or
    refusing client cannot hold up the accept loop."""

    daemon_threads = True

    def __init__(self, address, tls_context, store, script, api_key, quiet):
        self.tls_context = tls_context
        self.store = store
        self.script = script
        self.api_key = api_key
        self.quiet = quiet
        family = socket.AF_INET6 if ":" in address[0] else socket.AF_INET
        self.address_family = family
        super().__init__(address, CollectorHandler)

    def server_bind(self):
        # HTTPServer would look the address up with getfqdn, which can stall without DNS.
        socketserver.TCPServer.server_bind(self)
        self.server_name, self.server_port = self.server_address[:2]

    def finish_request(self, request, client_address):
        # An answer goes out as two writes (head, then body). With Nagle's algorithm the body
        # would wait for the client's delayed acknowledgement of the head, some 40 ms, on every
        # connection the client keeps open until it has read the answer.
        request.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        request.settimeout(HANDSHAKE_TIMEOUT)
        try:
            tls_socket = self.tls_context.wrap_socket(request, server_side=True)
        except (ssl.SSLError, OSError) as error:
            self.log(f"TLS handshake with {client_address[0]} failed: {error}")
            return
        try:
            tls_socket.settimeout(IDLE_TIMEOUT)
            self.RequestHandlerClass(tls_socket, client_address, self)
        finally:
            tls_socket.close()

    def log(self, text):
        if not self.quiet:
            print(f"collector: {text}", file=sys.stderr, flush=True)


class CollectorHandler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "TarvikCollector/1"

    # ---- routing

    def do_POST(self):
        path = self._path()
        if path in SUBMISSION_KINDS:
            self._ingest(SUBMISSION_KINDS[path], path)
        elif path == "/_control/script":
            self._control(self._add_script)
        elif path == "/_control/reset":
            self._control(self._reset)
        else:
            self._not_found(path)

    def do_GET(self):
        path = self._path()
        if path == CONFIG_PATH:
            self._event_config(path)
        elif path == "/_control/state":
            self._control(self._state)
        else:
            self._not_found(path)

    def _path(self):
        return urllib.parse.urlsplit(self.path).path

    def _not_found(self, path):
        if self._read_body_if_any() is None:
            return
        known = set(SUBMISSION_KINDS) | {CONFIG_PATH} | {
            CONTROL_PREFIX + name for name in ("script", "reset", "state")}
        if path in known:
            self._send_json(405, {"error": "method not allowed"})
        else:
            self._send_json(404, {"error": "not found"})

    # ---- submissions

    def _ingest(self, kind, path):
        body = self._read_body()
        if body is None:
            return
        if not self._api_key_accepted():
            return
        rule = self.server.script.take(path)
        if not self._apply_rule_before_answer(rule):
            return
        if rule is not None and rule.status != 200:
            self._send_scripted(rule, {"error": "scripted answer"})
            return
        try:
            form = parse_form_body(self.headers.get("Content-Type"), body)
            entry = self.server.store.store(kind, form, self.headers, len(body))
        except (FormBodyError, ValueError) as error:
            self._send_json(400, {"error": str(error)})
            return
        self.server.log(f"stored {kind} {entry['uuid']}"
                        + (" (duplicate)" if entry["duplicate"] else ""))
        self._send_scripted(rule, {"status": "ok"})

    # ---- event configuration

    def _event_config(self, path):
        if self._read_body_if_any() is None:
            return
        query = urllib.parse.parse_qs(urllib.parse.urlsplit(self.path).query,
                                      keep_blank_values=True)
        query = {name: values[0] if len(values) == 1 else values for name, values in query.items()}
        if not self._api_key_accepted():
            self.server.store.log_config_request(query, self.headers, 401)
            return
        rule = self.server.script.take(path)
        status = 200 if rule is None else rule.status
        self.server.store.log_config_request(query, self.headers, None if rule and rule.drop
                                             else status)
        if not self._apply_rule_before_answer(rule):
            return
        self._send_scripted(rule, self.server.script.config())

    # ---- control

    def _control(self, action):
        body = self._read_body_if_any()
        if body is None:
            return
        if not ipaddress.ip_address(self.client_address[0]).is_loopback:
            self._send_json(403, {"error": "control is answered on loopback only"})
            return
        action(body)

    def _add_script(self, body):
        try:
            self.server.script.add(Script.from_json(json.loads(body or b"{}")))
        except (ValueError, ScriptError) as error:
            self._send_json(400, {"error": str(error)})
            return
        self._send_json(200, {"status": "ok", "remaining_rules": self.server.script.remaining()})

    def _reset(self, _body):
        self.server.script.clear_rules()
        self._send_json(200, {"status": "ok"})

    def _state(self, _body):
        state = self.server.store.counts()
        state["remaining_rules"] = self.server.script.remaining()
        state["config"] = self.server.script.config()
        self._send_json(200, state)

    # ---- shared steps

    def _api_key_accepted(self):
        expected = self.server.api_key
        if expected is None or self.headers.get("X-Tarvik-Api-Key") == expected:
            return True
        self._send_json(401, {"error": "invalid API key"})
        return False

    def _apply_rule_before_answer(self, rule):
        """Waits and drops as scripted; False when the connection was dropped."""
        if rule is None:
            return True
        if rule.delay:
            time.sleep(rule.delay)
        if rule.drop:
            self.close_connection = True
            try:
                self.connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            self.server.log(f"dropped {self.command} {self.path} as scripted")
            return False
        return True

    def _send_scripted(self, rule, default_body):
        if rule is None:
            self._send_json(200, default_body)
            return
        body = default_body if rule.body is None else rule.body
        if rule.status == 200 and rule.event is not None and isinstance(body, dict):
            body = dict(body, event=rule.event)
        if isinstance(body, str):
            self._send(rule.status, body.encode("utf-8"), "text/plain; charset=utf-8")
        else:
            self._send_json(rule.status, body)

    def _read_body(self):
        """Exactly Content-Length bytes, or None after answering why not."""
        text = self.headers.get("Content-Length")
        if text is None:
            self._refuse_body(411, "Content-Length is required")
            return None
        if not text.isdigit():
            self._refuse_body(400, "Content-Length is not a number")
            return None
        length = int(text)
        if length > MAX_BODY_SIZE:
            self._refuse_body(413, "body too large")
            return None
        body = self.rfile.read(length)
        if len(body) != length:
            self.close_connection = True
            return None
        return body

    def _read_body_if_any(self):
        if self.headers.get("Content-Length") is None and "chunked" not in self.headers.get(
                "Transfer-Encoding", ""):
            return b""
        return self._read_body()

    def _refuse_body(self, status, reason):
        # The unread body would be taken for the next request, so this connection ends here.
        self.close_connection = True
        self._send_json(status, {"error": reason}, closing=True)

    def _send_json(self, status, value, closing=False):
        self._send(status, json.dumps(value).encode("utf-8"), "application/json", closing)

    def _send(self, status, payload, content_type, closing=False):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(payload)))
        if closing:
            self.send_header("Connection", "close")
        self.end_headers()
        self.wfile.write(payload)

    def log_message(self, format, *args):
        self.server.log(f"{self.client_address[0]} {format % args}")
