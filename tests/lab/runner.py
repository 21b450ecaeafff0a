"""The command line of the lab."""

import argparse
import os
import signal
import sys
import tempfile
import time
from pathlib import Path
from textwrap import indent

from agent import Agent
from bench import Bench
from namespaces import Namespace
from needs import Machine
from processes import LabError
from scenario import Report, Scenario, Skipped
from scenarios import all_scenarios
from traffic import build

PROGRAM = Path(__file__).parents[2] / "build/release/bin/velmroute"


def parse(arguments: list[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="lab", description="Runs the agent between real routing daemons and a software switch."
    )
    parser.add_argument("names", nargs="*", metavar="SCENARIO", help="all unless given")
    parser.add_argument("--program", type=Path, default=PROGRAM, help="the program velmroute")
    parser.add_argument("--short", action="store_true", help="the form of three minutes")
    parser.add_argument(
        "--lenient", action="store_true", help="a time beyond its limit fails no scenario"
    )
    parser.add_argument("--keep", action="store_true", help="wait before a topology is removed")
    parser.add_argument("--list", action="store_true", help="list the scenarios")
    options = parser.parse_args(arguments)
    if options.keep and not sys.stdin.isatty():
        parser.error("--keep waits at a terminal")
    return options


def choose(names: list[str], short: bool) -> list[Scenario]:
    every = {scenario.name: scenario for scenario in all_scenarios()}
    unknown = [name for name in names if name not in every]
    if unknown:
        print(f"unknown scenario: {', '.join(unknown)}", file=sys.stderr)
        sys.exit(2)
    if names:
        return [every[name] for name in names]
    return [scenario for scenario in every.values() if scenario.short or not short]


class Lab:
    def __init__(self, options: argparse.Namespace, agent_type: type[Agent]) -> None:
        self._options = options
        self._agent_type = agent_type
        self._program = options.program.absolute()
        self._machine = Machine(self._program, agent_type)
        self._files: Namespace | None = None
        self._traffic: Path | None = None
        self.counts = {"passed": 0, "failed": 0, "skipped": 0}

    def play(self, scenario: Scenario) -> None:
        print(f"{scenario.name}: {scenario.title}", flush=True)
        start = time.monotonic()
        report = Report(lenient=self._options.lenient)
        lack = ", ".join(self._machine.missing(scenario.needs))
        if not lack:
            try:
                self._run(scenario, report)
            except Skipped as skipped:
                lack = str(skipped)
        for figure in report.figures:
            print(f"   {figure}")
        for fault in report.faults:
            print(f"   FAULT {fault}")
        if report.faults and report.log:
            print(indent(f"log of the agent:\n{report.log}", "   "))
        if lack:
            result = "skipped"
            print(f"   skipped: {lack}", flush=True)
        else:
            result = "failed" if report.faults else "passed"
            print(f"   {result} in {time.monotonic() - start:.1f} s", flush=True)
        self.counts[result] += 1

    def _run(self, scenario: Scenario, report: Report) -> None:
        short = self._options.short
        with Bench(self._program, self._built(), self._agent_type, short) as bench:
            try:
                scenario.run(bench, report)
            except Skipped:
                raise
            except Exception as error:  # the other scenarios run in any case
                kind = "" if isinstance(error, LabError) else f"{type(error).__name__}: "
                report.faults.append(f"{kind}{error}")
            report.log = bench.last_words()
            if self._options.keep:
                print("\n".join([*report.figures, *report.faults, bench.describe()]), flush=True)
                input("Enter removes the topology: ")

    def _built(self) -> Path:
        """The program of the senders and receivers. A namespace holds its directory."""
        if not self._traffic:
            directory = Path(tempfile.mkdtemp(prefix="velmroute-lab-"))
            self._files = Namespace("files", directory)
            directory.chmod(0o755)
            self._traffic = build(directory)
        return self._traffic

    def close(self) -> None:
        if self._files:
            self._files.close()


def interrupt(*_: object) -> None:
    raise KeyboardInterrupt


def main(arguments: list[str], agent_type: type[Agent] = Agent) -> int:
    options = parse(arguments)
    if options.list:
        for scenario in all_scenarios():
            print(f"{scenario.name:18} {'short' if scenario.short else '':6} {scenario.title}")
        return 0
    scenarios = choose(options.names, options.short)
    signal.signal(signal.SIGTERM, interrupt)
    # The path of a service or of another user may lack the system's programs.
    os.environ["PATH"] += ":/usr/local/sbin:/usr/sbin:/sbin"
    os.environ["LC_ALL"] = "C"
    lab = Lab(options, agent_type)
    try:
        for scenario in scenarios:
            lab.play(scenario)
    except KeyboardInterrupt:
        print("interrupted", file=sys.stderr)
        return 130
    finally:
        lab.close()
    print(", ".join(f"{number} {result}" for result, number in lab.counts.items()))
    return 1 if lab.counts["failed"] else 0
