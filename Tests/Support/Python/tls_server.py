# SPDX-License-Identifier: Apache-2.0
"""An HTTPS server on the loopback that requires a client certificate and records each one."""

import hashlib
import html
import ssl
import threading
from dataclasses import dataclass
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import urlsplit

from Tests.Support.Python.certificates import Authority
from Tests.Support.Python.private_machine import await_until

PAGE = '<!doctype html><link rel="icon" href="data:,"><title>{common_name}</title>'


@dataclass(frozen=True)
class Visit:
    host: str  # from the request, without the port
    path: str
    common_name: str
    fingerprint: str


class TlsServer:
    """Runs until `close`. A client without a certificate of the authority gets no page and is not recorded.

    `page` has the names of the certificate's and the request's properties in braces.
    """

    def __init__(self, authority: Authority, page: str = PAGE):
        own = authority.issue_for_server()
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(own.certificate, own.key)
        context.load_verify_locations(authority.certificate)
        context.verify_mode = ssl.CERT_REQUIRED
        visits = self._visits = []

        class Handler(BaseHTTPRequestHandler):
            timeout = 60

            def setup(self):
                # Not when accepting, so that an idle connection does not delay others.
                self.request.settimeout(self.timeout)
                self.request = context.wrap_socket(self.request, server_side=True)
                super().setup()

            def finish(self):
                super().finish()
                self.request.close()

            def do_GET(self):
                visit, shown = _visit(self)
                visits.append(visit)
                body = page.format(**{key: html.escape(text) for key, text in shown.items()}).encode()
                self.send_response(200)
                self.send_header("Content-Type", "text/html; charset=utf-8")
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *_):
                pass

        class Server(ThreadingHTTPServer):
            daemon_threads = True

            def handle_error(self, *_):
                pass  # the client refused or abandoned the handshake

        self._server = Server(("127.0.0.1", 0), Handler)
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def url(self, path: str, host: str = "localhost") -> str:
        return f"https://{host}:{self._server.server_port}{path}"

    def await_visit(self, path: str, host: str | None = None) -> Visit:
        """Waits for a visit to `path`, at `host` if one is given. Returns the first one."""

        def first():
            return next((visit for visit in self._visits if visit.path == path and host in (None, visit.host)), None)

        return await_until(first, f"a visit to {path}")

    def visited_paths(self) -> list[str]:
        return [visit.path for visit in self._visits]

    def close(self) -> None:
        self._server.shutdown()
        self._server.server_close()


def _visit(handler: BaseHTTPRequestHandler) -> tuple[Visit, dict[str, str]]:
    """The visit, and what its page may show."""
    certificate = handler.request.getpeercert()
    subject, issuer = (dict(pair for part in certificate[field] for pair in part) for field in ("subject", "issuer"))
    address = f"https://{handler.headers['Host']}{handler.path}"
    shown = {
        "common_name": subject.get("commonName", ""),
        "subject": ", ".join(subject.values()),
        "issuer": ", ".join(issuer.values()),
        "fingerprint": hashlib.sha256(handler.request.getpeercert(binary_form=True)).hexdigest(),
        "address": address,
    }
    return Visit(urlsplit(address).hostname, handler.path, shown["common_name"], shown["fingerprint"]), shown
