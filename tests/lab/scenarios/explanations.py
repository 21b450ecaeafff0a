"""The agent's explanations and its report, while outputs of a route fail."""

import time

from bench import MAIN, SOURCE, STANDBY, Bench
from scenario import Report, Scenario
from traffic import Flow

BACKUP = f"rtr{STANDBY}"
LINKS_DOWN = ["link rtr1 down", "link rtr3 down"]
HOLD = 2  # seconds from the return of a link to the return of its routes


def explained(bench: Bench, report: Report) -> None:
    """rtr1 has a backup, which leads to h1 as well, and rtr3 has none."""
    flow = Flow("232.7.0.1", 500)
    bench.set_up()
    agent = bench.start_agent([*MAIN, BACKUP], reroutes={"rtr1": BACKUP}, standby_hold=HOLD)
    daemon = bench.open_routes()
    daemon.put((SOURCE, flow.first), "rtr0", ["rtr1", "rtr2", "rtr3"])
    bench.wait_for_hardware(daemon.routes)

    def look(moment: str, headline: str, receivers: set[str]) -> None:
        trial = bench.trial()
        for host in ("h1", "h2", "h3"):
            interfaces = "eth0,eth1" if host == "h1" else "eth0"
            trial.receive(bench.hosts[host], flow, interfaces=interfaces)
        trial.send(bench.hosts["h0"], flow)
        time.sleep(0.5)
        answer = agent.explain(SOURCE, flow.first)
        outcome = trial.finish()
        found = {one.name for one in outcome.receptions if one.heard == 1}
        report.figure(f"{moment}: {answer.splitlines()[0]}")
        report.check(found == receivers, f"{moment}: received by {sorted(found)}")
        expected = f"({SOURCE}, {flow.first}) in VRF default: {headline}"
        report.check(answer.startswith(expected), f"{moment}: {expected} is not first in: {answer}")

    leaves = "offloaded; packets from rtr0 leave by "
    look("at first", leaves + "rtr1, rtr2, rtr3.", {"h1", "h2", "h3"})
    bench.hosts["h1"].ip("link set eth0 down")
    time.sleep(1)
    look("rtr1 down", leaves + f"rtr2, rtr3, {BACKUP}.", {"h1", "h2", "h3"})
    bench.hosts["h3"].ip("link set eth0 down")
    time.sleep(1)
    look("rtr3 down", "output rtr3 is down: nothing comes out there.", {"h1", "h2"})
    page = agent.report()
    report.check(page["routes"]["dst"] == [flow.first], f"the report has {page['routes']['dst']}")
    for part, expected in (("reroutes", ["link rtr1 down"]), ("events", LINKS_DOWN)):
        rows = [row.get("cause") or row["text"] for row in page[part]["rows"]]
        report.check(rows == expected, f"the report has the {part} {rows}")
    for host in ("h1", "h3"):
        bench.hosts[host].ip("link set eth0 up")
    time.sleep(HOLD + 2)
    look("links up again", leaves + "rtr1, rtr2, rtr3.", {"h1", "h2", "h3"})


SCENARIOS = [
    Scenario(
        "explained",
        "explanations and the report agree with the receivers while outputs fail",
        explained,
        short=True,
    )
]
