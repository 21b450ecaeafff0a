"""The topology of a scenario. It is made for one scenario and removed after it.

The namespace "router" holds the switch, the daemons and the agent:

   host h<i>, eth0 -- p<i>, front port of br0   c<i>, CPU port of br0 -- rtr<i>, router interface
   host h1,   eth1 -- p4                        c4                    -- rtr4
   host k0,   eth0 -- q0, port of br1: the control flow crosses br1 from k0 to k1
   host k1,   eth0 -- q1, port of br1
"""

import contextlib
import tempfile
from pathlib import Path

from agent import Agent, Configuration, Interface
from daemons import Pim, Smcroute
from kernel import Route, RouteNotifications, RouteSocket, kernel_routes
from namespaces import Namespace
from openvswitch import FlowMonitor, Switch
from processes import LabError, wait_until
from traffic import Trial

HOSTS = ["h0", "h1", "h2", "h3"]
MAIN = ["rtr0", "rtr1", "rtr2", "rtr3"]
STANDBY = 4
CPU_NUMBERS = 100  # the CPU port c<i> has the OpenFlow number of p<i> and this
SOURCE = "10.0.0.2"  # address of h0, the sender


class Bench:
    def __init__(self, program: Path, traffic: Path, agent_type: type[Agent], short: bool) -> None:
        self.program = program
        self.short = short
        self._traffic = traffic
        self._agent_type = agent_type
        self._resources = contextlib.ExitStack()
        self._interfaces: list[str] = []
        self._agents: list[Agent] = []

    def __enter__(self) -> "Bench":
        return self

    def __exit__(self, *_: object) -> None:
        self._resources.close()

    def set_up(self, more_interfaces: int = 0) -> None:
        """Makes hosts, router and switch. `more_interfaces` have ports, but no receivers."""
        self.directory = Path(tempfile.mkdtemp(prefix="velmroute-lab-"))
        self.directory.chmod(0o755)  # daemons that drop their rights read their files there
        self.router = self._namespace("router", self.directory)
        self.hosts = {name: self._namespace(name) for name in [*HOSTS, "k0", "k1", "sink"]}
        self.router.sysctl(
            {
                "net.ipv4.ip_forward": 1,
                "net.ipv4.conf.all.rp_filter": 0,
                "net.ipv4.conf.default.rp_filter": 0,
                # The front ports are interfaces of the router, too, and must not answer for it.
                "net.ipv4.conf.all.arp_ignore": 1,
                "net.ipv4.igmp_max_memberships": 20000,
                "net.ipv6.conf.all.forwarding": 1,
                "net.ipv6.conf.default.disable_ipv6": 1,
            }
        )
        count = STANDBY + 1 + more_interfaces
        for number in range(count):
            self._add_interface(number)
        for host, port in (("k0", "q0"), ("k1", "q1")):
            self._cable(port, self.hosts[host], "eth0")
            self.hosts[host].ip(f"address add 10.9.0.{1 + int(host[1])}/24 dev eth0")
        self._interfaces = [f"rtr{number}" for number in range(count)]
        self.switch = Switch(self.router, self.directory)
        self.switch.start()
        ports = {f"p{n}": n + 1 for n in range(count)}
        ports |= {f"c{n}": n + 1 + CPU_NUMBERS for n in range(count)}
        self.switch.add_bridges(ports, ["q0", "q1"])
        self.router.ip("link set br0 up")

    def make_agent(
        self,
        interfaces: list[str] | None = None,
        standby: dict[str, str] | None = None,
        **options: object,
    ) -> Agent:
        named = [
            Interface(name, f"p{name[3:]}", f"c{name[3:]}", (standby or {}).get(name, ""))
            for name in interfaces or MAIN
        ]
        configuration = Configuration(named, **options)  # type: ignore[arg-type]
        return self._agent_type(
            self.program, self.router, self.directory, self.switch.address, configuration
        )

    def start_agent(self, *arguments: object, **options: object) -> Agent:
        agent = self.make_agent(*arguments, **options)  # type: ignore[arg-type]
        self._agents.append(agent)
        agent.start()
        return agent

    def start_pim(self, keep_alive: int = 0) -> Pim:
        daemon = Pim(self.router, self.directory, MAIN, keep_alive)
        daemon.start()
        return daemon

    def start_smcroute(self, routes: list[str]) -> Smcroute:
        daemon = Smcroute(self.router, self.directory, MAIN, routes)
        daemon.start()
        return daemon

    def open_routes(self) -> RouteSocket:
        routes = RouteSocket(self.router, self._interfaces)
        self._resources.callback(routes.close)
        return routes

    def watch_routes(self) -> RouteNotifications:
        notifications = RouteNotifications(self.router)
        self._resources.callback(notifications.close)
        return notifications

    def watch_flows(self) -> FlowMonitor:
        monitor = self.switch.monitor()
        self._resources.callback(monitor.close)
        return monitor

    def trial(self, rate: float = 1000) -> Trial:
        return Trial(self._traffic, (self.hosts["k0"], self.hosts["k1"]), rate)

    def kernel_routes(self, outputs: bool = True) -> dict[Route, int]:
        return kernel_routes(self.router, outputs)

    def wait_for_hardware(self, routes: set[Route], seconds: float = 20) -> float:
        """Waits until the switch has flows for these routes and no other. Returns the seconds."""
        try:
            return wait_until(
                lambda: self.switch.routes() == routes, seconds, f"{len(routes)} routes in hardware"
            )
        except LabError as error:
            found = self.switch.routes()
            missing, more = sorted(routes - found), sorted(found - routes)
            examples = "; ".join(str(example) for example in (missing[:1] + more[:1]))
            raise LabError(
                f"{error}: {len(missing)} missing, {len(more)} too many: {examples}"
            ) from error

    def last_words(self) -> str:
        """The end of each agent's log."""
        return "\n".join(agent.last_words() for agent in self._agents)

    def describe(self) -> str:
        spaces = ", ".join(f"{s.name} {s.pid}" for s in [self.router, *self.hosts.values()])
        return (
            f"files: {self.directory}; switch: {self.switch.address}\n"
            f"processes that hold the namespaces: {spaces}\n"
            f"to enter one: nsenter --net=/proc/PROCESS/ns/net"
        )

    def _namespace(self, name: str, directory: Path | None = None) -> Namespace:
        namespace = Namespace(name, directory)
        self._resources.callback(namespace.close)
        return namespace

    def _add_interface(self, number: int) -> None:
        name = f"rtr{number}"
        self.router.ip(f"link add c{number} type veth peer name {name}")
        self.router.sysctl({f"net.ipv6.conf.{name}.disable_ipv6": 0})
        self.router.ip(
            f"link set c{number} up",
            f"link set {name} up",
            f"address add 10.0.{number}.1/24 dev {name}",
            f"address add 2001:db8:{number}::1/64 dev {name} nodad",
        )
        self._compute_checksums(self.router, f"c{number}", name)
        if number < len(HOSTS):
            host = self.hosts[f"h{number}"]
            host.sysctl({"net.ipv4.igmp_max_memberships": 20000, "net.ipv4.conf.all.rp_filter": 0})
            self._cable(f"p{number}", host, "eth0")
            host.ip(
                f"address add 10.0.{number}.2/24 dev eth0",
                f"address add 2001:db8:{number}::2/64 dev eth0 nodad",
                f"route add default via 10.0.{number}.1",
                f"route add default via 2001:db8:{number}::1",
            )
        elif number == STANDBY:
            self._cable(f"p{number}", self.hosts["h1"], "eth1")
            self.hosts["h1"].sysctl({"net.ipv4.conf.eth1.rp_filter": 0})
        else:
            self._cable(f"p{number}", self.hosts["sink"], f"eth{number}")

    def _cable(self, port: str, host: Namespace, interface: str) -> None:
        self.router.ip(
            f"link add {port} type veth peer name {interface} netns {host.pid}",
            f"link set {port} up",
        )
        host.ip(f"link set {interface} up")
        self._compute_checksums(self.router, port)
        self._compute_checksums(host, interface)

    @staticmethod
    def _compute_checksums(namespace: Namespace, *interfaces: str) -> None:
        """The switch in user space forwards packets as it reads them, so that senders compute the
        checksums themselves."""
        for interface in interfaces:
            namespace.run("ethtool", "-K", interface, "tx", "off", "rx", "off")
