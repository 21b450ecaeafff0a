"""Numbered packets: flows, their senders and receivers, and trials beside a control flow."""

import json
import math
import statistics
import subprocess
import time
from dataclasses import dataclass
from ipaddress import ip_address
from pathlib import Path
from typing import Any

from namespaces import Namespace
from processes import LabError, run, spawn

CONTROL_GROUP = "239.255.0.1"


def build(directory: Path) -> Path:
    """Compiles the program of the senders and receivers."""
    program = directory / "traffic"
    source = Path(__file__).with_suffix(".cpp")
    run(["g++", "-std=c++20", "-O1", str(source), "-o", str(program)], seconds=120)
    return program


@dataclass(frozen=True)
class Flow:
    """The groups `first`, `first + step`, ...; `rate` is in packets a second of all together."""

    first: str
    rate: float
    count: int = 1
    step: int = 1
    port: int = 5000

    @property
    def groups(self) -> list[str]:
        return [str(ip_address(self.first) + i * self.step) for i in range(self.count)]

    @property
    def period(self) -> float:
        """Milliseconds between two packets of one group."""
        return 1e3 * self.count / self.rate

    @property
    def arguments(self) -> list[str]:
        return [str(self.port), self.first, str(self.count), str(self.step)]


@dataclass
class Reception:
    """The packets of a flow that a host received. Per-group values stand in the order of the
    groups. Lengths are in milliseconds, times in seconds."""

    name: str
    flow: Flow
    sent: list[int]
    ended: float  # time of the sender's end
    duplicated: int
    overflow: int
    first: list[int]
    latency: list[float]
    distinct: list[int]
    outage: list[float]
    began: list[float]
    last: list[float]
    pauses: list[float]  # begins and ends
    received: int

    def __post_init__(self) -> None:
        """A group that was silent until the sender's end had an outage there. The last time of a
        group that was never heard is that of its join."""
        for place, last in enumerate(self.last):
            tail = (self.ended - last) * 1e3
            if tail > self.outage[place]:
                self.outage[place], self.began[place] = tail, last
        self.pauses += [max(self.last), max(self.ended, max(self.last))]

    @property
    def heard(self) -> int:
        return sum(1 for number in self.first if number >= 0)

    @property
    def lost(self) -> int:
        """Packets that were sent after the first one that arrived, and did not arrive. Of a group
        that was never heard each packet is lost."""
        return sum(
            sent - max(first, 0) - distinct
            for sent, first, distinct in zip(self.sent, self.first, self.distinct)
        )

    @property
    def silence(self) -> float:
        """The longest time without a packet of any group."""
        return max(end - begin for begin, end in self.spans()) * 1e3

    @property
    def worst(self) -> tuple[float, float]:
        """The longest time without a packet of one group, as its begin and end."""
        outage, began = max(zip(self.outage, self.began))
        return began, began + outage / 1e3

    @property
    def worst_outage(self) -> float:
        """The length of the worst outage beyond the flow's period."""
        return max(max(self.outage) - self.flow.period, 0)

    def spans(self) -> list[tuple[float, float]]:
        return list(zip(self.pauses[::2], self.pauses[1::2]))


class Trial:
    """Flows that run beside the control flow. The control flow crosses the same switch process, but
    no table of the agent; so it suffers from the machine alone."""

    def __init__(self, program: Path, control: tuple[Namespace, Namespace], rate: float) -> None:
        self._program = program
        self._receivers: list[tuple[str, Flow, subprocess.Popen]] = []
        self._senders: list[tuple[Flow, subprocess.Popen]] = []
        flow = Flow(CONTROL_GROUP, rate, port=4999)
        self.receive(control[1], flow)
        self.send(control[0], flow)

    def receive(
        self,
        host: Namespace,
        flow: Flow,
        source: str = "-",
        interfaces: str = "eth0",
        pause: float = 0,
    ) -> None:
        """Joins the groups of the flow, source-specific if a source is given, and waits until all
        are joined. `pause` is the time between two joins in seconds."""
        command = [str(self._program), "receive", interfaces, *flow.arguments]
        process = self._spawn(host, [*command, source, str(round(pause * 1e6))])
        assert process.stdout
        if process.stdout.readline() != "ready\n":
            raise LabError(f"{host.name}: the receiver of {flow.first} did not start")
        self._receivers.append((host.name, flow, process))

    def send(self, host: Namespace, flow: Flow) -> None:
        command = [str(self._program), "send", "eth0", *flow.arguments, str(flow.rate)]
        self._senders.append((flow, self._spawn(host, command)))

    def finish(self) -> "Outcome":
        sent = {flow: self._end(process) for flow, process in self._senders}
        time.sleep(0.3)  # packets on their way arrive
        receptions = [
            Reception(name=name, flow=flow, **sent[flow], **self._end(process))
            for name, flow, process in self._receivers
        ]
        return Outcome(receptions[0], receptions[1:])

    @staticmethod
    def _spawn(host: Namespace, command: list[str]) -> subprocess.Popen:
        return host.spawn(*command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    @staticmethod
    def _end(process: subprocess.Popen) -> dict[str, Any]:
        output, _ = process.communicate(timeout=30)
        if process.returncode != 0:
            raise LabError("a sender or receiver failed")
        return json.loads(output)


@dataclass
class Outcome:
    control: Reception
    receptions: list[Reception]

    def lost_beyond(self, reception: Reception) -> int:
        """Lost packets beyond the share that the control flow lost."""
        share = self.control.lost / max(sum(self.control.sent), 1)
        return max(reception.lost - math.ceil(share * sum(reception.sent)), 0)

    def duplicated_beyond(self, reception: Reception) -> int:
        return max(reception.duplicated - self.control.duplicated, 0)

    def outage_beyond(self, reception: Reception) -> float:
        """The worst outage, less the longest pause that the control flow made in it."""
        begin, end = reception.worst
        shared = [min(end, until) - max(begin, since) for since, until in self.control.spans()]
        stalled = max([0, *shared])
        return max(reception.worst_outage - stalled * 1e3, 0)


def median_and_worst(values: list[float]) -> str:
    if not values:
        return "none"
    return f"median {statistics.median(values):.2f}, worst {max(values):.2f} ms of {len(values)}"
