"""A private Open vSwitch: its own database, sockets and logs in a directory of the lab."""

import os
import re
import subprocess
import threading
import time
from pathlib import Path

from namespaces import Namespace
from processes import LabError, end, run, spawn, succeeds, tail, wait_until

SCHEMA = "/usr/share/openvswitch/vswitch.ovsschema"
ROUTE = re.compile(r"\b(?:nw|ipv6)_src=([^,/\s]+),.*?\b(?:nw|ipv6)_dst=([^,/\s]+)")

Route = tuple[str, str]  # source and group


class Switch:
    """The bridge br0 belongs to the agent. The bridge br1 learns addresses and floods by itself, so
    that it carries the control flow without a controller."""

    def __init__(self, namespace: Namespace, directory: Path) -> None:
        self._namespace = namespace
        self._directory = directory
        self._daemons: dict[str, subprocess.Popen] = {}
        self.address = f"unix:{directory}/br0.mgmt"

    def start(self) -> None:
        database = self._directory / "conf.db"
        run(["ovsdb-tool", "create", str(database), SCHEMA])
        self._start("ovsdb-server", str(database), f"--remote=punix:{self._directory}/db.sock")
        wait_until((self._directory / "db.sock").exists, 10, "ovsdb-server")
        self.vsctl("--no-wait", "init")
        self.start_forwarding()

    def start_forwarding(self) -> None:
        self._start("ovs-vswitchd", f"unix:{self._directory}/db.sock")

    def kill_forwarding(self) -> None:
        """The flows, groups and taps go with the process; the database stays."""
        end(self._daemons.pop("ovs-vswitchd"), 9)

    def is_forwarding(self) -> bool:
        """The bridge answers a controller."""
        socket = f"{self._directory}/br0.mgmt"
        return succeeds(["ovs-ofctl", "-O", "OpenFlow15", "dump-aggregate", f"unix:{socket}"])

    def vsctl(self, *arguments: str) -> str:
        return run(
            ["ovs-vsctl", "--timeout=20", f"--db=unix:{self._directory}/db.sock", *arguments]
        )

    def add_bridges(self, ports: dict[str, int], control: list[str]) -> None:
        arguments = ["add-br", "br0", "--", "set", "bridge", "br0", "datapath_type=netdev"]
        arguments += ["fail_mode=secure", "protocols=OpenFlow15"]
        for port, number in ports.items():
            arguments += ["--", *self._port("br0", port, number)]
        arguments += ["--", "add-br", "br1"]
        arguments += ["--", "set", "bridge", "br1", "datapath_type=netdev", "fail_mode=standalone"]
        for port in control:
            arguments += ["--", "add-port", "br1", port]
        self.vsctl(*arguments)

    def add_port(self, port: str, number: int) -> None:
        self.vsctl(*self._port("br0", port, number))

    def delete_port(self, port: str) -> None:
        self.vsctl("del-port", "br0", port)

    def ofctl(self, command: str, *arguments: str, bridge: str = "br0") -> str:
        socket = f"unix:{self._directory}/{bridge}.mgmt"
        return run(["ovs-ofctl", "-O", "OpenFlow15", command, socket, *arguments])

    def routes(self) -> set[Route]:
        """The routes in hardware: each has a flow that matches its source and group."""
        return {
            (match[1], match[2])
            for match in map(ROUTE.search, self.ofctl("dump-flows").splitlines())
            if match
        }

    def count_groups(self) -> int:
        return self.ofctl("dump-groups").count("group_id=")

    def monitor(self) -> "FlowMonitor":
        return FlowMonitor(self._directory / "br0.mgmt")

    @staticmethod
    def _port(bridge: str, port: str, number: int) -> list[str]:
        request = f"ofport_request={number}"
        return ["add-port", bridge, port, "--", "set", "interface", port, request]

    def _start(self, daemon: str, *arguments: str) -> None:
        log = self._directory / f"{daemon}.log"
        directories = ("OVS_RUNDIR", "OVS_LOGDIR", "OVS_DBDIR", "OVS_SYSCONFDIR")
        self._daemons[daemon] = self._namespace.spawn(
            daemon,
            *arguments,
            f"--unixctl={self._directory}/{daemon}.ctl",
            f"--log-file={log}",
            "-vconsole:off",
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env=os.environ | dict.fromkeys(directories, str(self._directory)),
        )
        if self._daemons[daemon].poll() is not None:
            raise LabError(f"{daemon}: {tail(log)}")


class FlowMonitor:
    """Notes when the switch takes over each flow of a route."""

    def __init__(self, socket: Path) -> None:
        self.added: dict[Route, list[float]] = {}
        # The program prints the first reply to standard output, and the events to standard error.
        self._process = spawn(
            [
                *(
                    "stdbuf",
                    "-oL",
                    "ovs-ofctl",
                    "-O",
                    "OpenFlow15",
                    f"--unixctl={socket.with_suffix('.watch')}",
                ),
                *("monitor", f"unix:{socket}", "watch:!initial"),
            ],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
        )
        assert self._process.stdout
        if "FLOW_MONITOR" not in self._process.stdout.readline():
            raise LabError("the switch reports no flows")
        self._thread = threading.Thread(target=self._read)
        self._thread.start()

    def close(self) -> None:
        end(self._process)
        self._thread.join()

    def _read(self) -> None:
        assert self._process.stderr
        for line in self._process.stderr:
            match = ROUTE.search(line)
            if match and "event=ADDED" in line:
                self.added.setdefault((match[1], match[2]), []).append(time.time())
