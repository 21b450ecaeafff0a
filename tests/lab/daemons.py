"""Routing daemons with private configurations, sockets and logs."""

import shutil
import subprocess
from pathlib import Path

from namespaces import Namespace
from processes import LabError, end, run, succeeds, tail, wait_until

FRR = Path("/usr/lib/frr")


class Pim:
    """zebra and pimd. The router is the rendezvous point of all groups."""

    def __init__(
        self, namespace: Namespace, directory: Path, interfaces: list[str], keep_alive: int = 0
    ) -> None:
        self._namespace = namespace
        self._directory = directory / "frr"
        self._interfaces = interfaces
        self._keep_alive = keep_alive
        self._daemons: dict[str, subprocess.Popen] = {}

    def start(self) -> None:
        self._directory.mkdir(mode=0o775)
        shutil.chown(self._directory, "frr", "frrvty")
        self._directory.chmod(0o775)
        self._write("zebra", ["hostname r", "ip forwarding"])
        lines = ["hostname r", "ip pim rp 10.0.0.1 224.0.0.0/4"]
        if self._keep_alive:
            lines.append(f"ip pim keep-alive-timer {self._keep_alive}")
        for interface in self._interfaces:
            lines += [f"interface {interface}", " ip pim", " ip igmp"]
        self._write("pimd", lines)
        self._start("zebra")
        wait_until((self._directory / "zserv.api").exists, 10, "zebra")
        self.start_pimd()

    def start_pimd(self) -> None:
        self._start("pimd")
        wait_until(self._is_up, 20, "pimd")

    def kill_pimd(self) -> None:
        end(self._daemons.pop("pimd"), 9)

    def show(self, command: str) -> str:
        return run(["vtysh", "--vty_socket", str(self._directory), "-c", f"show {command}"])

    def _is_up(self) -> bool:
        probe = ["vtysh", "--vty_socket", str(self._directory), "-c", "show ip igmp interface"]
        if not succeeds(probe):
            return False
        lines = self.show("ip igmp interface").splitlines()
        return all(
            any(line.split()[:2] == [interface, "up"] for line in lines)
            for interface in self._interfaces
        )

    def _write(self, daemon: str, lines: list[str]) -> None:
        file = self._directory / f"{daemon}.conf"
        file.write_text("\n".join(lines) + "\n")
        shutil.chown(file, "frr", "frr")

    def _start(self, daemon: str) -> None:
        directory = self._directory
        self._daemons[daemon] = self._namespace.spawn(
            str(FRR / daemon),
            *("-f", f"{directory}/{daemon}.conf", "-i", f"{directory}/{daemon}.pid"),
            *("-z", f"{directory}/zserv.api", "--vty_socket", str(directory), "-P", "0"),
            *("--log", f"file:{directory}/{daemon}.log"),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )


class Smcroute:
    """smcrouted in a table of its own, so that it runs beside pimd."""

    TABLE = 100

    def __init__(
        self, namespace: Namespace, directory: Path, interfaces: list[str], routes: list[str]
    ) -> None:
        """`routes` are lines of its configuration: "mroute from A group G to B C"."""
        self._namespace = namespace
        self._directory = directory
        self._lines = [f"phyint {interface} enable" for interface in interfaces] + routes

    def start(self) -> None:
        directory = self._directory
        (directory / "smcroute.conf").write_text("\n".join(self._lines) + "\n")
        log = directory / "smcroute.log"
        # Packets look their route up in the daemon's table first.
        self._namespace.run(*f"ip -6 mrule add pref 100 table {self.TABLE}".split())
        with open(log, "w", encoding="utf-8") as output:
            process = self._namespace.spawn(
                *("smcrouted", "-t", str(self.TABLE), "-N", "-n", "-i", "lab", "-l", "info"),
                *("-f", f"{directory}/smcroute.conf", "-P", f"{directory}/smcroute.pid"),
                *("-u", f"{directory}/smcroute.sock"),
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=output,
            )
        wait_until((directory / "smcroute.pid").exists, 10, "smcrouted")
        if process.poll() is not None:
            raise LabError(f"smcrouted: {tail(log)}")
