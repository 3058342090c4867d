# SPDX-License-Identifier: Apache-2.0
"""Shows the tool's main job with a real browser, on a private machine: `python3 -m Tools.demonstration EXECUTABLE FOLDER`."""

import ctypes
import json
import os
import re
import shutil
import signal
import sys
import time
from contextlib import ExitStack, contextmanager
from pathlib import Path

from Tests.Support.Python import chromium, private_machine
from Tests.Support.Python.certificates import Authority, Database, Identity
from Tests.Support.Python.private_machine import CHROMIUM, PrivateMachine, await_until, other_processes
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


def save_screenshot(machine: PrivateMachine, title: str, file: Path) -> None:
    window = await_until(
        lambda: re.search(rb"Window id: (\w+)", machine.run("xwininfo", "-name", f"{title} - Chromium").stdout),
        f"a window with the title {title}",
    )
    save_picture(machine, "import", "-window", window[1], file=file)


def save_picture(machine: PrivateMachine, *command, file: Path) -> None:
    made = machine.run(*command, "+dither", "-colors", "64", "-strip", f"png8:{file}")
    if made.status != 0:
        raise RuntimeError(f"{command[0]} could not make a picture: {made.stderr.decode(errors='replace').strip()}")
    print(f"Picture: {file}")


def show_question(machine: PrivateMachine, server: TlsServer, host: str, file: Path) -> None:
    """Visits the host without a rule, and then forgets the visit."""
    machine.run("sh", "-c", '"$@" &', "sh", CHROMIUM.executable, server.url("/", host))
    time.sleep(5)  # Nothing tells when the browser asks.
    save_screenshot(machine, "Untitled", file)
    profile = machine.profile(CHROMIUM)
    browser = int(os.readlink(profile / "SingletonLock").rpartition("-")[2])
    os.kill(browser, signal.SIGKILL)
    await_until(lambda: browser not in other_processes(), "the browser to end")
    shutil.rmtree(profile)


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
        database = Database(machine.home / ".local/share/pki/nssdb")
        database.add(*identities)
        database.trust(authority)

    with step("Starting a server that demands a client certificate"):
        server = TlsServer(authority, PAGE)
        at_end.callback(server.close)
        print("\n".join(server.url("/", host) for host in HOSTS))

    with step("Listing the identities"):
        listing = run_helper(machine, executable, "list")
        print("\nThe same, laid out:\n" + json.dumps(json.loads(listing), indent=2, ensure_ascii=False))

    question = pictures / "question.png"
    with step("Visiting the server without a rule: Chromium asks"):
        show_question(machine, server, HOSTS[0], question)

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
            server.await_visit("/drawn/", host)
            picture = pictures / f"{name.split()[0].lower()}.png"
            save_screenshot(machine, f"Certificate shown: {name}", picture)
            if number == 1:
                both = (question, picture, "-bordercolor", "white", "-border", "6", "+append")
                save_picture(machine, "convert", *both, file=pictures / "before-and-after.png")


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
