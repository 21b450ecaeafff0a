"""The agent under test. This file alone knows its command line, its configuration and its views."""

import json
import os
import signal
import socket
import subprocess
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from namespaces import Namespace
from processes import LabError, end, succeeds, tail, wait_until


@dataclass
class Interface:
    """A router interface, its front port and its CPU port in the bridge."""

    name: str
    port: str
    cpu: str
    standby: str = ""  # a front port that takes over when `port` fails


@dataclass
class Configuration:
    interfaces: list[Interface]
    tables: list[int] = field(default_factory=list)  # the main ones unless given
    expiry: int = 210
    hold: int = 0  # seconds to keep the routes of a daemon that ended
    standby_hold: int = 10  # seconds from the return of a link to the return of its routes
    reroutes: dict[str, str] = field(default_factory=dict)  # interface: its backup


class Agent:
    MAIN_TABLES = [253, 254]  # of IPv4 and IPv6
    QUIET_MS = 2.0  # the agent waits so long for further notifications of a route

    def __init__(
        self,
        program: Path,
        namespace: Namespace,
        directory: Path,
        switch: str,
        configuration: Configuration,
    ) -> None:
        self._program = program
        self._namespace = namespace
        self._switch = switch
        self._configuration = configuration
        self._control = directory / "control.sock"
        self._metrics = directory / "metrics.sock"
        self._file = directory / "velmroute.conf"
        self._log = directory / "agent.log"
        self._process: subprocess.Popen | None = None

    @staticmethod
    def exists(program: Path) -> bool:
        return succeeds([str(program), "agent", "--help"])

    def accepts_configuration(self) -> bool:
        self._write_configuration()
        return succeeds(self._command("--check-config"))

    @property
    def pid(self) -> int:
        assert self._process
        return self._process.pid

    def start(self) -> None:
        self._write_configuration()
        with open(self._log, "a", encoding="utf-8") as log:
            self._process = self._namespace.spawn(
                *self._command(), stdin=subprocess.DEVNULL, stdout=log, stderr=log
            )
        wait_until(self._is_ready, 20, "the agent")

    def kill(self) -> None:
        self._end(signal.SIGKILL)

    def terminate(self) -> None:
        self._end(signal.SIGTERM)

    def pause(self) -> None:
        os.kill(self.pid, signal.SIGSTOP)

    def resume(self) -> None:
        os.kill(self.pid, signal.SIGCONT)

    def last_words(self) -> str:
        return tail(self._log)

    def show(self, view: str) -> str:
        return self._namespace.run(
            str(self._program), "show", "--control", str(self._control), view
        )

    def explain(self, source: str, group: str) -> str:
        question = f"{source},{group}"
        return self._namespace.run(
            str(self._program), "explain", "--control", str(self._control), question
        )

    def report(self) -> Any:
        """The data of the page at /report."""
        with socket.socket(socket.AF_UNIX) as opened:
            opened.connect(str(self._metrics))
            opened.sendall(b"GET /report HTTP/1.1\r\nHost: lab\r\nConnection: close\r\n\r\n")
            answer = b"".join(iter(lambda: opened.recv(1 << 16), b""))
        page = answer.decode().partition('id="data">')[2]
        return json.loads(page.partition("</script>")[0])

    def resident_kilobytes(self) -> int:
        status = Path(f"/proc/{self.pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0])

    def wake_ups(self) -> int:
        """How often a thread of the agent has left the processor of its own accord."""
        tasks = Path(f"/proc/{self.pid}/task").glob("*/status")
        return sum(
            int(t.read_text().split("\nvoluntary_ctxt_switches:")[1].split()[0]) for t in tasks
        )

    def _command(self, *options: str) -> list[str]:
        return [str(self._program), "agent", "--config", str(self._file), *options]

    def _is_ready(self) -> bool:
        assert self._process
        if self._process.poll() is not None:
            raise LabError(f"the agent ended with {self._process.returncode}:\n{tail(self._log)}")
        view = [str(self._program), "show", "--control", str(self._control), "routes"]
        return self._control.exists() and succeeds(self._namespace.command(*view))

    def _end(self, number: int) -> None:
        assert self._process
        end(self._process, number)

    def _write_configuration(self) -> None:
        wanted = self._configuration
        lines = [f"switch {self._switch}", f"control {self._control}"]
        lines.append(f"metrics unix:{self._metrics}")
        lines += [f"table {table}" for table in wanted.tables]
        lines += [f"expiry {wanted.expiry}", f"hold-on-daemon-restart {wanted.hold}"]
        lines.append(f"standby-hold {wanted.standby_hold}")
        for one in wanted.interfaces:
            standby = f" standby {one.standby}" if one.standby else ""
            lines.append(f"interface {one.name} port {one.port} cpu {one.cpu}{standby}")
        lines += [f"reroute {name} {backup}" for name, backup in wanted.reroutes.items()]
        self._file.write_text("\n".join(lines) + "\n")
