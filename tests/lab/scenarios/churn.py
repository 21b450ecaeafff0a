"""Routes that change beside routes that must not notice it."""

import random
import time
from functools import partial

from bench import SOURCE, Bench
from ipaddress import ip_address
from kernel import Route, RouteSocket
from scenario import Report, Scenario
from traffic import Flow

OUTPUTS = (["rtr1"], ["rtr2"], ["rtr1", "rtr2"], ["rtr1", "rtr3"], ["rtr1", "rtr2", "rtr3"])
OVERRUN_CHANGES = 150_000


def stable_flow(bench: Bench, daemon: RouteSocket, count: int, rate: float = 1000) -> Flow:
    """Adds the routes of a flow to h1 and h2."""
    flow = Flow("232.1.0.0", rate, count)
    for group in flow.groups:
        daemon.put((SOURCE, group), "rtr0", ["rtr1", "rtr2"])
    return flow


def change(daemon: RouteSocket, routes: list[Route], dice: random.Random) -> None:
    route = dice.choice(routes)
    if route in daemon.routes and dice.random() < 0.4:
        daemon.delete(route, "rtr0")
    else:
        daemon.put(route, "rtr0", dice.choice(OUTPUTS))


def other_routes(count: int) -> list[Route]:
    return [(SOURCE, str(ip_address("232.2.0.0") + i)) for i in range(count)]


def churn(bench: Bench, report: Report, count: int, seconds: float) -> None:
    dice = random.Random(1)
    bench.set_up()
    bench.start_agent()
    daemon = bench.open_routes()
    flow = stable_flow(bench, daemon, count)
    seconds_in_hardware = bench.wait_for_hardware(daemon.routes)
    report.figure(f"{count} routes in hardware after {seconds_in_hardware:.2f} s")
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], flow)
    trial.send(bench.hosts["h0"], flow)
    routes = other_routes(count)
    changes, start = 0, time.monotonic()
    while (elapsed := time.monotonic() - start) < seconds:
        while changes < elapsed * count:
            change(daemon, routes, dice)
            changes += 1
        time.sleep(0.002)
    settled = bench.wait_for_hardware(daemon.routes)
    report.figure(
        f"{changes} changes in {seconds} s; hardware equals the kernel {settled:.2f} s later"
    )
    report.lossless(trial.finish())


def overrun(bench: Bench, report: Report) -> None:
    dice = random.Random(2)
    bench.set_up()
    agent = bench.start_agent()
    daemon = bench.open_routes()
    flow = stable_flow(bench, daemon, 1000)
    bench.wait_for_hardware(daemon.routes)
    trial = bench.trial()
    trial.receive(bench.hosts["h1"], flow)
    trial.send(bench.hosts["h0"], flow)
    routes = other_routes(1000)
    agent.pause()
    for _ in range(OVERRUN_CHANGES):
        change(daemon, routes, dice)
    drops = dropped_notifications(bench, agent.pid)
    report.figure(f"{drops} notifications dropped while the agent was stopped")
    report.check(drops > 0, "the socket of the agent was not overrun")
    agent.resume()
    settled = bench.wait_for_hardware(daemon.routes, 30)
    report.figure(f"hardware equals the kernel {settled:.2f} s after the agent went on")
    time.sleep(1.2)  # each group is sent once a second
    report.lossless(trial.finish())


def dropped_notifications(bench: Bench, process: int) -> int:
    lines = bench.router.run("cat", "/proc/net/netlink").splitlines()
    head = lines[0].split()
    port, drops = head.index("Pid"), head.index("Drops")
    rows = [line.split() for line in lines[1:]]
    own = [int(row[drops]) for row in rows if int(row[port]) == process]
    return max(own or [int(row[drops]) for row in rows])


SCENARIOS = [
    Scenario(
        "churn-small",
        "churn of 200 routes beside 200 that flow",
        partial(churn, count=200, seconds=4),
        short=True,
    ),
    Scenario(
        "churn",
        "churn of 1,000 routes beside 1,000 that flow at 1,000 packets a second",
        partial(churn, count=1000, seconds=15),
    ),
    Scenario("overrun", "the kernel drops notifications of a stopped agent", overrun),
]
