"""The parts of the machine that the scenarios need."""

import os
import socket
from collections.abc import Callable
from pathlib import Path
from shutil import which

from agent import Agent
from daemons import FRR
from kernel import MRT_INIT
from namespaces import Namespace
from openvswitch import SCHEMA
from processes import LabError, succeeds

PROGRAMS = ("ip", "nsenter", "unshare", "ethtool", "g++")
SWITCH_PROGRAMS = ("ovs-vswitchd", "ovsdb-server", "ovsdb-tool", "ovs-vsctl", "ovs-ofctl")


class Machine:
    """Looks each part up once. The order of the look-ups matters: later ones use earlier parts."""

    def __init__(self, program: Path, agent_type: type[Agent]) -> None:
        self._program = program
        self._agent_type = agent_type
        self._missing: dict[str, str | None] = {}

    def missing(self, needs: tuple[str, ...]) -> list[str]:
        found = []
        for need in ("root", "programs", "namespaces", "tun", "Open vSwitch", *needs):
            if need not in self._missing:
                self._missing[need] = self._look(need)
            lack = self._missing[need]
            if lack:
                found.append(lack)
                if need in ("root", "programs"):
                    break
        return found

    def _look(self, need: str) -> str | None:
        looks: dict[str, Callable[[], str | None]] = {
            "root": lambda: None if os.geteuid() == 0 else "root",
            "programs": lambda: lacking(PROGRAMS),
            "namespaces": self._namespaces,
            "tun": lambda: None if succeeds(["test", "-c", "/dev/net/tun"]) else "/dev/net/tun",
            "Open vSwitch": lambda: (
                None if not lacking(SWITCH_PROGRAMS) and Path(SCHEMA).exists() else "Open vSwitch"
            ),
            "FRR": lambda: (
                None if (FRR / "pimd").exists() and (FRR / "zebra").exists() else "FRR"
            ),
            "smcroute": lambda: lacking(("smcrouted",)) and "smcroute",
            "agent": self._agent,
        }
        return looks[need]()

    def _namespaces(self) -> str | None:
        if not succeeds(["unshare", "--net", "true"]):
            return "network namespaces"
        namespace = Namespace("probe")
        try:
            namespace.call(open_multicast_routing)
        except (LabError, OSError):
            return "multicast routing in the kernel"
        finally:
            namespace.close()
        return None

    def _agent(self) -> str | None:
        if not self._program.exists():
            return f"the program {self._program}"
        return (
            None if self._agent_type.exists(self._program) else "the program has no command agent"
        )


def lacking(programs: tuple[str, ...]) -> str | None:
    return ", ".join(name for name in programs if not which(name)) or None


def open_multicast_routing() -> None:
    with socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP) as opened:
        opened.setsockopt(socket.IPPROTO_IP, MRT_INIT, 1)
