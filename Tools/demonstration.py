# SPDX-License-Identifier: Apache-2.0
"""Shows the tool's main job with a real browser, on a private machine: `python3 -m Tools.demonstration EXECUTABLE FOLDER`."""

import ctypes
import json
import os
import re
import sys
from contextlib import ExitStack, contextmanager
from pathlib import Path

from Tests.Support.Python import chromium, private_machine
from Tests.Support.Python.certificates import Authority, Database, Identity
from Tests.Support.Python.private_machine import PrivateMachine, await_until
from Tests.Support.Python.tls_server import TlsServer

AUTHORITY = {"CN": "Demo Authority", "O": "Lumaret Demo"}
IDENTITIES = (
    {"CN": "Ana Example", "O": "Example Org", "OU": "Sales/East", "L": "Lugo"},
    {"CN": "Ben Example", "O": "Example Org", "OU": "Research", "L": "Turku"},
)
# Until it ends, a browser keeps to the certificate that it has shown a host. So each identity visits its own host.
HOSTS = ("first.localhost", "second.localhost")

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


class StepFailed(Exception):
    pass


@contextmanager
def step(title: str):
    print(f"\n==> {title}", flush=True)
    try:
        yield
    except Exception as error:
        raise StepFailed(f"{title}: {error}") from error


def use_display(machine: PrivateMachine) -> None:
    """Uses the person's display if it can be reached, else a virtual one."""
    name = os.environ.get("DISPLAY", "")
    cookies = os.environ.get("XAUTHORITY") or os.path.expanduser("~/.Xauthority")
    open_display = ctypes.CDLL("libX11.so.6").XOpenDisplay
    open_display.restype = ctypes.c_void_p
    if name and open_display(name.encode()):
        machine.environment |= {"DISPLAY": name, "XAUTHORITY": cookies}
        print(f"Using the display {name}.")
        return
    chromium.start_display(machine)
    print("There is no display here: Chromium gets a virtual one.")


def run_helper(machine: PrivateMachine, executable: Path, *arguments: str) -> str:
    print(f"$ lumaret-macos-helper {' '.join(arguments)}", flush=True)
    outcome = machine.run(executable, *arguments)
    if outcome.status != 0:
        raise RuntimeError(f"status {outcome.status}: {outcome.stderr.decode(errors='replace').strip()}")
    result = outcome.stdout.decode()
    print(result, end="")
    return result


def show_visit(server: TlsServer, host: str, identity: Identity) -> None:
    visit = server.await_visit("/", host)
    print(f"The server at {host} was shown the certificate of {visit.common_name},\n  SHA-256 {visit.fingerprint}")
    if visit.fingerprint != identity.fingerprint:
        raise RuntimeError(f"the activated certificate is another one, {identity.fingerprint}")


def save_screenshot(machine: PrivateMachine, server: TlsServer, host: str, identity: Identity, file: Path) -> None:
    server.await_visit("/drawn/", host)
    title = f"Certificate shown: {identity.name['CN']} - Chromium"
    window = await_until(
        lambda: re.search(rb"Window id: (\w+)", machine.run("xwininfo", "-name", title).stdout),
        f"a window with the title {title}",
    )
    taken = machine.run("import", "-window", window[1], "+dither", "-colors", "64", "-strip", f"png8:{file}")
    if taken.status != 0:
        raise RuntimeError(f"import could not take a picture: {taken.stderr.decode(errors='replace').strip()}")
    print(f"Screenshot: {file}")


def demonstrate(executable: Path, pictures: Path, at_end: ExitStack) -> None:
    with step("Setting up a throw-away machine: home, policies, browser profile and network of its own"):
        pictures.mkdir(parents=True, exist_ok=True)
        machine = PrivateMachine()
        at_end.callback(machine.close)
        chromium.configure(machine, "--window-size=740,600")
        machine.write_policies("10-demo.json", '{"CommandLineFlagSecurityWarningsEnabled": false}')
        use_display(machine)

    with step("Making a certificate authority and two client identities in Chromium's certificate database"):
        authority = Authority(machine.folder / "authority", AUTHORITY, HOSTS)
        identities = [authority.issue(name) for name in IDENTITIES]
        database = Database(machine.home / ".pki/nssdb")
        database.add(*identities)
        database.trust(authority)

    with step("Starting a server that demands a client certificate"):
        server = TlsServer(authority, PAGE)
        at_end.callback(server.close)
        print("\n".join(server.url("/", host) for host in HOSTS))

    with step("Listing the identities"):
        listing = run_helper(machine, executable, "list")
        print("\nThe same, laid out:\n" + json.dumps(json.loads(listing), indent=2, ensure_ascii=False))

    for number, (identity, host) in enumerate(zip(identities, HOSTS), start=1):
        if number > 1:
            with step("Waiting until Chromium has finished starting"):
                chromium.await_ready_for_refresh(machine)
        name = identity.name["CN"]
        browser = "Chromium is not running" if number == 1 else "the browser is still running"
        with step(f"Activating {name} ({browser})"):
            run_helper(
                machine, executable, "activate", "--fingerprint", identity.fingerprint, "--url", server.url("/", host)
            )
            show_visit(server, host, identity)
            save_screenshot(machine, server, host, identity, pictures / f"{name.split()[0].lower()}.png")


def main() -> None:
    private_machine.enter()
    executable, pictures = (Path(argument).resolve() for argument in sys.argv[1:])
    try:
        with ExitStack() as at_end:
            demonstrate(executable, pictures, at_end)
    except StepFailed as failure:
        sys.exit(f"demo: failed: {failure}")
    except KeyboardInterrupt:
        sys.exit("demo: interrupted")
    print("\nDone. Nothing of this machine's certificates, policies or browser profiles was touched.")


main()
