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

PAGE = """<!doctype html>
<html lang="en">
<meta charset="utf-8">
<title>Certificate shown: {common_name}</title>
<link rel="icon" href="data:,">
<style>
  body {{ margin: 0; min-height: 100vh; display: grid; place-items: center; background: #eef2f6;
         color: #1c2733; font: 18px/1.5 "DejaVu Sans", sans-serif; }}
  main {{ background: #fff; border-top: 6px solid #2f6f4f; border-radius: 6px; padding: 36px 48px;
         box-shadow: 0 2px 12px #0002; }}
  h1 {{ margin: 0 0 24px; font-size: 30px; }}
  dt {{ color: #5b6b7a; font-size: 15px; }}
  dd {{ margin: 0 0 16px; }}
  code {{ font: 15px "DejaVu Sans Mono", monospace; }}
</style>
<main>
  <h1>Welcome, {common_name}</h1>
  <dl>
    <dt>This server was shown the certificate of</dt><dd>{subject}</dd>
    <dt>issued by</dt><dd>{issuer}</dd>
    <dt>with the SHA-256 fingerprint</dt><dd><code>{fingerprint}</code></dd>
    <dt>for the address</dt><dd><code>{address}</code></dd>
  </dl>
</main>
<script>
  // The second callback comes when a frame of the whole page has been drawn.
  onload = () => requestAnimationFrame(() => requestAnimationFrame(() => fetch("/drawn" + location.pathname)));
</script>
</html>
"""


@dataclass(frozen=True)
class Visit:
    host: str  # from the request, without the port
    path: str
    common_name: str
    fingerprint: str


class TlsServer:
    """Runs until `close`. A client without a certificate of the authority gets no page and is not recorded."""

    def __init__(self, authority: Authority):
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
                visit, page = _visit_and_page(self)
                visits.append(visit)
                body = page.encode()
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


def _visit_and_page(handler: BaseHTTPRequestHandler) -> tuple[Visit, str]:
    certificate = handler.request.getpeercert()
    fingerprint = hashlib.sha256(handler.request.getpeercert(binary_form=True)).hexdigest()
    subject, issuer = (dict(pair for part in certificate[field] for pair in part) for field in ("subject", "issuer"))
    address = f"https://{handler.headers['Host']}{handler.path}"
    visit = Visit(urlsplit(address).hostname, handler.path, subject.get("commonName", ""), fingerprint)
    page = PAGE.format(
        **{
            key: html.escape(text)
            for key, text in {
                "common_name": visit.common_name,
                "subject": ", ".join(subject.values()),
                "issuer": ", ".join(issuer.values()),
                "fingerprint": fingerprint,
                "address": address,
            }.items()
        }
    )
    return visit, page
