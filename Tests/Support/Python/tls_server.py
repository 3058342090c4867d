# SPDX-License-Identifier: Apache-2.0
"""An HTTPS server on the loopback that requires a client certificate and records each one."""

import hashlib
import html
import ssl
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from typing import NamedTuple
from urllib.parse import urlsplit

from Tests.Support.Python.certificates import Authority
from Tests.Support.Python.private_machine import await_until

PAGE = '<!doctype html><link rel="icon" href="data:,"><title>{common_name}</title>'


class Visit(NamedTuple):
    host: str  # from the request, without the port
    path: str
    common_name: str
    fingerprint: str


class TlsServer(ThreadingHTTPServer):
    """Runs until `close`. A client without a certificate of the authority gets no page and is not recorded.

    `page` has the names of the certificate's and the request's properties in braces.
    """

    daemon_threads = True

    def __init__(self, authority: Authority, page: str = PAGE):
        super().__init__(("127.0.0.1", 0), _Handler)
        self.page, self.visits = page, []
        own = authority.issue_for_server()
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(own.certificate, own.key)
        context.load_verify_locations(authority.certificate)
        context.verify_mode = ssl.CERT_REQUIRED
        # Each thread does its own handshake, so that an idle connection does not delay others.
        self.socket = context.wrap_socket(self.socket, server_side=True, do_handshake_on_connect=False)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def handle_error(self, *_) -> None:
        """The client refused or abandoned the handshake."""

    def url(self, path: str, host: str = "localhost") -> str:
        return f"https://{host}:{self.server_port}{path}"

    def await_visit(self, path: str, host: str | None = None) -> Visit:
        """Waits for a visit to `path`, at `host` if one is given. Returns the first one."""

        def first():
            return next((visit for visit in self.visits if visit.path == path and host in (None, visit.host)), None)

        return await_until(first, f"a visit to {path}")

    def visited_paths(self) -> list[str]:
        return [visit.path for visit in self.visits]

    def close(self) -> None:
        self.shutdown()
        self.server_close()


class _Handler(BaseHTTPRequestHandler):
    timeout = 60

    def do_GET(self) -> None:
        certificate = self.connection.getpeercert()
        subject, issuer = (dict(pair for part in certificate[name] for pair in part) for name in ("subject", "issuer"))
        shown = {
            "common_name": subject.get("commonName", ""),
            "subject": ", ".join(subject.values()),
            "issuer": ", ".join(issuer.values()),
            "fingerprint": hashlib.sha256(self.connection.getpeercert(binary_form=True)).hexdigest(),
            "address": f"https://{self.headers['Host']}{self.path}",
        }
        host = urlsplit(shown["address"]).hostname
        self.server.visits.append(Visit(host, self.path, shown["common_name"], shown["fingerprint"]))
        body = self.server.page.format(**{key: html.escape(text) for key, text in shown.items()}).encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_) -> None:
        pass
