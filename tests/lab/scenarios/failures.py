"""Links that fail, with and without protection."""

import time
from collections.abc import Callable
from functools import partial

from bench import MAIN, SOURCE, STANDBY, Bench
from kernel import RouteSocket
from openflow import GROUP_MOD, MODIFY, Connection
from openflow import group as group_body
from scenario import Report, Scenario, Skipped
from scenarios.figures import RAW_GROUP, fill_raw
from traffic import Flow, Outcome

MORE_INTERFACES = 14  # enough for 10,000 different sets of outputs
STANDBY_MS = 15.0
REROUTE_MS = 30.0  # or twice the raw outage
RETURN_SECONDS = 4


def outputs_of(number: int) -> list[str]:
    """Set `number` of outputs: rtr1 and rtr2, and one of the other interfaces for each bit."""
    others = [f"rtr{STANDBY + 1 + bit}" for bit in range(MORE_INTERFACES) if number >> bit & 1]
    return ["rtr1", "rtr2", *others]


def put_groups(daemon: RouteSocket, count: int) -> Flow:
    """Adds `count` routes, each with a set of outputs of its own. Returns a flow of few of them."""
    every = Flow("232.3.0.0", 1, count)
    for number, group in enumerate(every.groups):
        daemon.put((SOURCE, group), "rtr0", outputs_of(number))
    step = 1 << max((count - 1).bit_length() - 2, 0)
    sample = min(3, count)
    return Flow(every.first, 1000.0 * sample, sample, step)


def fail_under_traffic(
    bench: Bench, flow: Flow, react: Callable[[], object] = lambda: None
) -> Outcome:
    """The first link of h1 fails; its second link has to deliver the same groups."""
    trial = bench.trial()
    trial.receive(bench.hosts["h1"], flow, interfaces="eth0,eth1")
    trial.receive(bench.hosts["h2"], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1.5)
    bench.hosts["h1"].ip("link set eth0 down")
    react()
    time.sleep(2)
    return trial.finish()


def return_of_link(bench: Bench, flow: Flow, report: Report) -> None:
    """Both links of h1 are up again: each packet has to arrive once, by either of them."""
    bench.hosts["h1"].ip("link set eth0 up")
    time.sleep(RETURN_SECONDS)
    trial = bench.trial()
    trial.receive(bench.hosts["h1"], flow, interfaces="eth0,eth1")
    trial.receive(bench.hosts["h2"], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    report.figure(f"{RETURN_SECONDS} s after the link's return:")
    report.lossless(trial.finish())


def report_outage(report: Report, outcome: Outcome, limit: float) -> None:
    moved, untouched = outcome.receptions
    report.lossless(outcome, [untouched])
    report.figure(
        f"h1 lost {moved.lost} of {sum(moved.sent)} packets, duplicated {moved.duplicated}; "
        f"outage {moved.worst_outage:.2f} ms"
    )
    report.check(moved.heard == moved.flow.count, "h1 did not hear each group")
    report.check(outcome.duplicated_beyond(moved) == 0, f"h1: duplicated {moved.duplicated}")
    report.at_most(
        "outage of h1 beyond the control flow", outcome.outage_beyond(moved), limit, "ms"
    )


def standby(bench: Bench, report: Report, count: int) -> None:
    bench.set_up(more_interfaces=MORE_INTERFACES if count > 1 else 0)
    bench.start_agent(interfaces_for(count), standby={"rtr1": f"p{STANDBY}"})
    daemon = bench.open_routes()
    flow = put_groups(daemon, count)
    bench.wait_for_hardware(daemon.routes, 60)
    report.figure(f"{bench.switch.count_groups()} groups in the switch")
    report_outage(report, fail_under_traffic(bench, flow), STANDBY_MS)
    return_of_link(bench, flow, report)


def reroute(bench: Bench, report: Report, count: int) -> None:
    bench.set_up(more_interfaces=MORE_INTERFACES if count > 1 else 0)
    interfaces = [*interfaces_for(count), f"rtr{STANDBY}"]
    reroutes = {"rtr1": f"rtr{STANDBY}"}
    if not bench.make_agent(interfaces, reroutes=reroutes).accepts_configuration():
        raise Skipped("the agent's configuration has no reroute")
    agent = bench.start_agent(interfaces, reroutes=reroutes)
    daemon = bench.open_routes()
    flow = put_groups(daemon, count)
    bench.wait_for_hardware(daemon.routes, 60)
    outcome = fail_under_traffic(bench, flow)
    after = Report(lenient=report.lenient)
    return_of_link(bench, flow, after)
    agent.kill()
    raw = raw_outage(bench, flow, count)
    report.figure(f"outage with a raw pipelined rewrite of {count} groups: {raw:.2f} ms")
    report_outage(report, outcome, max(2 * raw, REROUTE_MS))
    report.append(after)


def raw_outage(bench: Bench, flow: Flow, count: int) -> float:
    """The outage of the same failure, when the lab itself rewrites groups in place of the agent."""
    bench.switch.ofctl("del-flows")
    connection = Connection(bench.switch.address.removeprefix("unix:"))
    fill_raw(connection, count)
    bodies = [group_body(MODIFY, RAW_GROUP + i, [5, 3]) for i in range(count)]
    outcome = fail_under_traffic(bench, flow, lambda: connection.write(GROUP_MOD, bodies))
    connection.close()
    return outcome.outage_beyond(outcome.receptions[0])


def interfaces_for(count: int) -> list[str]:
    others = [f"rtr{STANDBY + 1 + i}" for i in range(MORE_INTERFACES)] if count > 1 else []
    return [*MAIN, *others]


def flaps(bench: Bench, report: Report) -> None:
    flow = Flow("239.8.8.8", 1000)
    bench.set_up()
    bench.start_pim()
    bench.start_agent()
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], flow)
    time.sleep(1)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    for down in (0.05, 0.2, 0.5, 1, 2):
        bench.hosts["h1"].ip("link set eth0 down")
        time.sleep(down)
        bench.hosts["h1"].ip("link set eth0 up")
        time.sleep(1)
    # A receiver that is started now measures the return, since it joins and counts by itself.
    again = Flow(flow.first, flow.rate, port=5001)
    time.sleep(RETURN_SECONDS)
    trial.receive(bench.hosts["h1"], again)
    trial.send(bench.hosts["h0"], again)
    time.sleep(3)
    outcome = trial.finish()
    flapped, untouched, returned = outcome.receptions
    report.lossless(outcome, [untouched, returned])
    report.figure(f"h1 lost {flapped.lost} packets of {sum(flapped.sent)} during the flaps")
    report.check(outcome.duplicated_beyond(flapped) == 0, "h1: duplicated packets")


SCENARIOS = [
    Scenario(
        f"standby-{count}",
        f"an interface's port fails and its standby takes over; groups: {count:,}",
        partial(standby, count=count),
        short=count <= 1000,
    )
    for count in (1, 1000, 10000)
]
SCENARIOS += [
    Scenario(
        f"reroute-{count}",
        f"an interface fails and the library rewrites its groups: {count:,}",
        partial(reroute, count=count),
    )
    for count in (1, 1000, 10000)
]
SCENARIOS.append(
    Scenario(
        "flaps",
        "the link of one receiver flaps; the other one must not notice",
        flaps,
        needs=("agent", "FRR"),
    )
)
