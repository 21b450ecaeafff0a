"""Ports of the bridge that go and come back."""

import time

from bench import Bench
from scenario import Report, Scenario
from scenarios.churn import stable_flow

NEW_NUMBER = 51
RETURN_MS = 2000


def renumbered(bench: Bench, report: Report) -> None:
    bench.set_up()
    bench.start_agent()
    daemon = bench.open_routes()
    flow = stable_flow(bench, daemon, 100)
    bench.wait_for_hardware(daemon.routes)
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    bench.switch.delete_port("p2")
    time.sleep(0.5)
    bench.switch.add_port("p2", NEW_NUMBER)
    time.sleep(2)
    outcome = trial.finish()
    untouched, moved = outcome.receptions
    report.figure(f"h2, whose port was away for 500 ms: silence of {moved.silence:.0f} ms")
    report.check(moved.silence < 500 + RETURN_MS, f"h2: silence of {moved.silence:.0f} ms")
    report.check(outcome.duplicated_beyond(moved) == 0, f"h2: duplicated {moved.duplicated}")
    report.lossless(outcome, [untouched])
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    report.lossless(trial.finish())


SCENARIOS = [
    Scenario(
        "port-renumbered",
        "a port is deleted and added with another number",
        renumbered,
        short=True,
    )
]
