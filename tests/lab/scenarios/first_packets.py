"""First packets: two daemons, both families, any-source and source-specific."""

import statistics
import time

from bench import SOURCE, Bench
from daemons import Smcroute
from scenario import Report, Scenario
from traffic import Flow, median_and_worst

GROUPS = 5
PACKETS_BEFORE_HARDWARE = 0.2  # share of a flow that the kernel may forward
PROGRAMMING_MS = 2.0


def first_packets(bench: Bench, report: Report) -> None:
    any_source = Flow("239.6.6.0", 1500, GROUPS, port=5001)
    specific = Flow("232.1.1.0", 1500, GROUPS, port=5002)
    six = Flow("ff3e::9:0", 1500, GROUPS, port=5003)
    bench.set_up()
    agent = bench.make_agent(tables=[])
    bench.start_pim()
    bench.start_smcroute([f"mroute from rtr0 group {group} to rtr1 rtr3" for group in six.groups])
    agent = bench.start_agent(tables=[*agent.MAIN_TABLES, Smcroute.TABLE])
    notifications, flows = bench.watch_routes(), bench.watch_flows()
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], any_source)
    for host in ("h1", "h3"):
        trial.receive(bench.hosts[host], six)
    for host in ("h2", "h3"):
        trial.receive(bench.hosts[host], specific, source=SOURCE)
    time.sleep(1)
    for flow in (any_source, six, specific):
        trial.send(bench.hosts["h0"], flow)
    time.sleep(5)
    outcome = trial.finish()
    report.lossless(outcome)

    counts = {group: count for (_, group), count in bench.kernel_routes().items()}
    for flow in (any_source, six, specific):
        sent = next(sum(r.sent) for r in outcome.receptions if r.flow == flow)
        count = sum(counts.get(group, sent) for group in flow.groups)
        report.figure(f"{flow.first}: the kernel forwarded {count} of {sent} packets")
        report.check(
            count < sent * PACKETS_BEFORE_HARDWARE, f"{flow.first}: the kernel forwarded {count}"
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
