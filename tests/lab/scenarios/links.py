"""Router interfaces that change, and one that has no port."""

import time

from bench import MAIN, SOURCE, Bench
from processes import wait_until
from scenario import Report, Scenario
from traffic import Flow

NEW_ADDRESS = "02:00:00:00:77:01"
SECONDS = 2.0


def changed(bench: Bench, report: Report) -> None:
    """The kernel notifies of no route when the link of one of its outputs is deleted."""
    flow = Flow("232.4.0.0", 1000, 10)
    bench.set_up()
    bench.start_agent()
    daemon = bench.open_routes()
    for group in flow.groups:
        daemon.put((SOURCE, group), "rtr0", ["rtr1", "rtr3"])
    bench.wait_for_hardware(daemon.routes)
    trial = bench.trial()
    for host in ("h1", "h3"):
        trial.receive(bench.hosts[host], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    bench.router.ip(f"link set rtr1 address {NEW_ADDRESS}")
    address = NEW_ADDRESS.replace(":", "")
    taken = wait_until(
        lambda: address in bench.switch.ofctl("dump-groups").replace(":", ""),
        SECONDS,
        "the new address in the switch",
    )
    report.figure(f"the new address of rtr1 in the switch after {taken:.2f} s")
    bench.router.ip("link delete rtr3")
    time.sleep(SECONDS)
    outcome = trial.finish()
    kept, removed = outcome.receptions
    report.lossless(outcome, [kept])
    report.figure(f"h3, whose interface was deleted, heard nothing for {removed.silence:.0f} ms")
    report.check(removed.silence > SECONDS * 500, "h3: the packets did not stop")
    report.check(removed.duplicated == 0, f"h3: duplicated {removed.duplicated}")


def unmapped(bench: Bench, report: Report) -> None:
    """A route with an output without a port stays with the CPU as a whole."""
    whole, partly = Flow("232.4.1.0", 200, port=5001), Flow("232.4.2.0", 200, port=5002)
    bench.set_up()
    bench.start_agent(MAIN)
    daemon = bench.open_routes()
    daemon.put((SOURCE, whole.first), "rtr0", ["rtr1", "rtr2"])
    daemon.put((SOURCE, partly.first), "rtr0", ["rtr1", "rtr2", "rtr4"])
    bench.wait_for_hardware({(SOURCE, whole.first)})
    trial = bench.trial()
    for flow in (whole, partly):
        for host in ("h1", "h2"):
            trial.receive(bench.hosts[host], flow)
        trial.send(bench.hosts["h0"], flow)
    time.sleep(2)
    daemon.put((SOURCE, partly.first), "rtr0", ["rtr1", "rtr2"])
    bench.wait_for_hardware(daemon.routes)
    time.sleep(1)
    daemon.put((SOURCE, partly.first), "rtr0", ["rtr1", "rtr2", "rtr4"])
    bench.wait_for_hardware({(SOURCE, whole.first)})
    time.sleep(1)
    report.lossless(trial.finish())


SCENARIOS = [
    Scenario("links-changed", "an interface gets a new address, another one is deleted", changed),
    Scenario(
        "output-unmapped", "a route gets and loses an output without a port", unmapped, short=True
    ),
]
