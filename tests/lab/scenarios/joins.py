"""Joins: their latency, and a thousand at once."""

import time

from bench import SOURCE, Bench
from processes import wait_until
from scenario import Report, Scenario
from traffic import Flow, median_and_worst

LATENCY_MS = 500
MANY = 1000
MANY_SECONDS = 10


def latency(bench: Bench, report: Report) -> None:
    """The groups flow to h1 already, when h2 and h3 join them one after another."""
    count = 3 if bench.short else 10
    any_source = Flow("239.7.7.0", 200 * count, count, port=5001)
    specific = Flow("232.7.7.0", 200 * count, count, port=5002)
    bench.set_up()
    bench.start_pim()
    bench.start_agent()
    trial = bench.trial()
    sources = {any_source: "-", specific: SOURCE}
    for flow, source in sources.items():
        trial.receive(bench.hosts["h1"], flow, source)
    time.sleep(1)
    for flow in sources:
        trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    for flow, source in sources.items():
        for host in ("h2", "h3"):
            trial.receive(bench.hosts[host], flow, source, pause=0.3)
    time.sleep(1)
    outcome = trial.finish()
    report.lossless(outcome)
    for flow in sources:
        joins = [
            ms
            for one in outcome.receptions
            if one.name != "h1" and one.flow == flow
            for ms in one.latency
            if ms >= 0
        ]
        report.figure(f"{flow.first}, join to first packet: {median_and_worst(joins)}")
        worst = max(joins, default=0) - outcome.control.worst_outage
        report.at_most(f"{flow.first}, worst join beyond the control flow", worst, LATENCY_MS, "ms")


def thousand(bench: Bench, report: Report) -> None:
    flow = Flow("232.5.0.0", 2000, MANY)
    routes = {(SOURCE, group) for group in flow.groups}
    bench.set_up()
    bench.start_pim()
    bench.start_agent()
    trial = bench.trial()
    start = time.monotonic()
    trial.receive(bench.hosts["h1"], flow, source=SOURCE)
    wait_until(lambda: routes <= bench.kernel_routes().keys(), MANY_SECONDS, "routes in the kernel")
    report.figure(f"{MANY} joins in the kernel after {time.monotonic() - start:.2f} s")
    bench.wait_for_hardware(routes, MANY_SECONDS)
    report.figure(f"{MANY} routes in hardware after {time.monotonic() - start:.2f} s")
    trial.send(bench.hosts["h0"], flow)
    time.sleep(5)
    report.lossless(trial.finish())
    # The receiver has left its groups.
    report.figure(f"hardware empty {bench.wait_for_hardware(set(), 30):.2f} s after the leave")


SCENARIOS = [
    Scenario(
        "join-latency",
        "receivers join groups that flow: time to the first packet",
        latency,
        needs=("agent", "FRR"),
        short=True,
    ),
    Scenario(
        "thousand-joins",
        "1,000 source-specific joins of one host",
        thousand,
        needs=("agent", "FRR"),
    ),
]
