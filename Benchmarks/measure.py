# SPDX-License-Identifier: Apache-2.0
"""Times both commands beside NSS's own program and Chrome's own call, over the same databases.

    LUMARET_MACOS_HELPER=PATH python3 -m Benchmarks.measure [--record] LIST-AS-CHROME

With `--record`, it also rewrites the figures and the plots in the sources.
"""

import contextlib
import json
import os
import platform
import re
import shlex
import shutil
import subprocess
import sys
import time
from pathlib import Path

from Benchmarks import databases, plot, results
from Tests.Support.Python import private_machine
from Tests.Support.Python.private_machine import CHROMIUM, PrivateMachine
from Tests.Support.Python.project import HELPER
from Tests.Support.Python.system_bus import SystemBus
from Tests.Support.Python.users import as_user

TOOLS = ("hyperfine", "certutil", "unshare", "/usr/bin/time")
USER = 2001
RUNS = ("--warmup=2", "--min-runs=5")
FEW_RUNS = ("--runs=2",)
MOST_FOR_SCRIPT = 300  # Its time grows with the square of the identities.


def complaints(recording: bool, programs: list[Path]) -> list[str]:
    """What a run requires and this machine lacks."""
    missing = [tool for tool in (*TOOLS, *(["gnuplot"] if recording else [])) if not shutil.which(tool)]
    found = [f"{tool} is missing: Tools/install-dependencies build benchmark" for tool in missing]
    found += [f"{program} is not an executable file" for program in programs if not os.access(program, os.X_OK)]
    for place in (databases.folder(), Path("/dev/shm")):
        existing = next(folder for folder in (place, *place.parents) if folder.exists())
        free = shutil.disk_usage(existing).free // 1_000_000
        if free < databases.MEGABYTES:
            found.append(f"{existing} has {free} MB left; the databases take up to {databases.MEGABYTES} MB")
    return found


def output(*command: str | Path, **settings) -> str:
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **settings)
    if done.returncode != 0:
        raise SystemExit(f"{shlex.join(map(str, command))} failed: {done.stderr.strip()}")
    return done.stdout


class Measurement:
    """Measures over one database at a time, on a private machine with a stand-in for the browser."""

    def __init__(self, machine: PrivateMachine, list_as_chrome: Path):
        self.machine, self.list_as_chrome = machine, list_as_chrome
        machine.install_stand_in(CHROMIUM)
        CHROMIUM.policies.mkdir(parents=True)

    def over(self, count: int) -> dict:
        database = databases.database(count)
        self.environment = self.machine.environment | {"HOME": str(databases.home(count))}
        commands = {
            "list": [HELPER, "list"],
            "script": [Path(__file__).parent / "list-by-script", database],
            "certutil": ["certutil", "-L", "-d", f"sql:{database}"],
            "chrome": [self.list_as_chrome, database],
        }
        if count > MOST_FOR_SCRIPT:
            del commands["script"]
        printed, runs = {}, {}
        for name, command in commands.items():
            started = time.monotonic()
            printed[name] = self.run(*command)
            runs[name] = FEW_RUNS if time.monotonic() - started > 5 else RUNS
        identities = json.loads(printed["list"])
        found = {len(identities), printed["certutil"].count("u,u,u"), int(printed["chrome"].split()[0])}
        if "script" in printed:
            found.add(printed["script"].count("notAfter="))
        if found != {count}:
            raise SystemExit(f"{database} should hold {count} identities: {found}. Remove its folder.")
        times = {name: self.milliseconds(command, *runs[name]) for name, command in commands.items()}
        if identities:
            activate = [HELPER, "activate", "--fingerprint", identities[count // 2]["id"]]
            # The rule is removed before each run, so that each run stores it.
            options = (*RUNS, f"--prepare=rm -rf {CHROMIUM.policies}")
            times["activate"] = self.milliseconds(activate, *options)
            with self.home_of_user(count):
                times["service"] = self.milliseconds([*as_user(USER), *activate], *options)
        peaks = {name: self.peak_megabytes(commands[name]) for name, _ in results.PEAKS}
        return {"identities": count, "milliseconds": times, "peak_megabytes": peaks}

    @contextlib.contextmanager
    def home_of_user(self, count: int):
        before, home = self.environment, self.machine.folder / f"home-{count}"
        shutil.copytree(databases.home(count), home)
        self.run("chown", "--recursive", f"{USER}:{USER}", home)
        self.environment = before | {"HOME": str(home)}
        yield
        self.environment = before

    def run(self, *command: str | Path) -> str:
        return output(*command, env=self.environment)

    def milliseconds(self, command: list, *options: str) -> dict[str, float]:
        export = self.machine.folder / "measured"
        self.run(
            *("hyperfine", "--shell=none", "--style=none", f"--export-json={export}"),
            *options,
            shlex.join(map(str, command)),
        )
        (result,) = json.loads(export.read_text())["results"]
        figures = {name: round(result[name] * 1000, 3) for name in ("median", "mean", "min", "max")}
        return figures | {"runs": len(result["times"])}

    def peak_megabytes(self, command: list) -> float:
        # Started directly from here, a program would begin with this interpreter's peak.
        report = self.machine.folder / "peak"
        self.run("/usr/bin/time", "--format=%M", f"--output={report}", *command)
        return round(int(report.read_text()) * 1024 / 1e6, 3)


def surroundings(list_as_chrome: Path, load: float) -> dict:
    """Where and when it was measured."""
    processor = re.search(r"^model name\s*: (.*)", Path("/proc/cpuinfo").read_text(), re.M)
    return {
        "date": time.strftime("%Y-%m-%d", time.gmtime()),
        "processor": processor[1] if processor else platform.machine(),
        "processors": os.cpu_count(),
        "load": round(load, 1),  # of others, before the run
        "system": platform.freedesktop_os_release()["PRETTY_NAME"],
        "nss": output(list_as_chrome, databases.database(0)).split()[1],
    }


def main(arguments: list[str]) -> None:
    recording = arguments[:1] == ["--record"]
    programs = [Path(argument).absolute() for argument in arguments[recording:]]
    if len(programs) != 1:
        raise SystemExit(__doc__)
    if found := complaints(recording, programs):
        raise SystemExit("\n".join(found))
    private_machine.enter()
    load = os.getloadavg()[0]
    if load > 0.5:
        print(f"The machine is busy (load {load:.1f}): the figures will be too high.")
    print(results.MEANING, flush=True)
    for count in databases.COUNTS:
        databases.home(count)

    machine = PrivateMachine()
    try:
        bus = SystemBus(machine, {"ana": USER})
        bus.permit("ana")
        measurement = Measurement(machine, *programs)
        measured = []
        headings = [heading.replace("`", "") for heading in results.headings()]
        print(*headings, sep="  ", flush=True)
        for count in databases.COUNTS:
            measured.append(measurement.over(count))
            print(
                *(f"{cell:>{len(name)}}" for cell, name in zip(results.row(measured[-1]), headings)),
                sep="  ",
                flush=True,
            )
        found = surroundings(programs[0], load) | {"measured": measured}
        bus.close()
    finally:
        machine.close()
    if recording:
        results.save(found)
        plot.draw(found)


if __name__ == "__main__":
    main(sys.argv[1:])
