"""First packets: two daemons, both families, any-source and source-specific."""

import statistics
import time

from agent import Agent
from bench import SOURCE, Bench
from daemons import Smcroute
from openflow import ADD, FLOW_MOD, GROUP_MOD, Connection, delete_all_groups, flow, group
from openvswitch import FlowMonitor
from processes import wait_until
from scenario import Report, Scenario
from scenarios.figures import RAW_GROUP
from traffic import Flow, median_and_worst

GROUPS = 5
RAW_FLOWS = 20
PACKETS_BEFORE_HARDWARE = 0.2  # share of a flow that the kernel may forward
PROGRAMMING_MS = 2.0


def raw_delays(bench: Bench, flows: FlowMonitor) -> list[float]:
    """Milliseconds from the write of a raw flow until the monitor sees it."""
    connection = Connection(bench.switch.address.removeprefix("unix:"))
    connection.write(GROUP_MOD, [group(ADD, RAW_GROUP, [2])])
    delays = []
    for address in Flow("232.99.0.0", 1, RAW_FLOWS).groups:
        start = time.time()
        connection.write(FLOW_MOD, [flow(1, SOURCE, address, RAW_GROUP)])
        route = (SOURCE, address)
        wait_until(lambda: route in flows.added, 5, "the event of a raw flow")
        delays.append((flows.added[route][0] - start) * 1e3)
    connection.write(GROUP_MOD, [delete_all_groups()])
    connection.close()
    flows.added.clear()
    return delays


def first_packets(bench: Bench, report: Report) -> None:
    any_source = Flow("239.6.6.0", 1500, GROUPS, port=5001)
    specific = Flow("232.1.1.0", 1500, GROUPS, port=5002)
    six = Flow("ff3e::9:0", 1500, GROUPS, port=5003)
    bench.set_up()
    flows = bench.watch_flows()
    report.figure(f"raw flows, written to seen: {median_and_worst(raw_delays(bench, flows))}")
    bench.start_pim()
    bench.start_smcroute([f"mroute from rtr0 group {one} to rtr1 rtr3" for one in six.groups])
    agent = bench.start_agent(tables=[*Agent.MAIN_TABLES, Smcroute.TABLE])
    notifications = bench.watch_routes()
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], any_source)
    for host in ("h1", "h3"):
        trial.receive(bench.hosts[host], six)
    for host in ("h2", "h3"):
        trial.receive(bench.hosts[host], specific, source=SOURCE)
    time.sleep(1)
    wanted = (any_source, six, specific)
    for one in wanted:
        trial.send(bench.hosts["h0"], one)
    time.sleep(5)
    # The daemon forgets the routes once their receivers have left.
    counts = {group: count for (_, group), count in bench.kernel_routes().items()}
    outcome = trial.finish()
    report.lossless(outcome)
    for one in wanted:
        sent = next(sum(r.sent) for r in outcome.receptions if r.flow == one)
        count = sum(counts.get(address, sent) for address in one.groups)
        report.figure(f"{one.first}: the kernel forwarded {count} of {sent} packets")
        report.check(
            count < sent * PACKETS_BEFORE_HARDWARE, f"{one.first}: the kernel forwarded {count}"
        )

    # The flow that came after a notification answers it.
    delays = [
        (added - max(before)) * 1e3
        for route, times in flows.added.items()
        for added in times
        if (before := [t for t in notifications.times.get(route, []) if t < added])
    ]
    report.figure(f"flows after the kernel's last notification: {median_and_worst(delays)}")
    report.check(len(delays) >= 3 * GROUPS, f"{len(delays)} flows were seen")
    if delays:
        beyond = max(statistics.median(delays) - agent.QUIET_MS, 0)
        report.at_most("median after the quiet time", beyond, PROGRAMMING_MS, "ms")


SCENARIOS = [
    Scenario(
        "first-packets",
        "FRR and smcroute, IPv4 and IPv6: nothing is lost or duplicated while routes appear",
        first_packets,
        needs=("agent", "FRR", "smcroute"),
        short=True,
    )
]
