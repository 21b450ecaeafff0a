"""Aging: a daemon keeps the routes whose packets the hardware forwards, and ages out the others."""

import time

from bench import SOURCE, Bench
from scenario import Report, Scenario
from traffic import Flow

EXPIRY = 40  # pimd accepts no keep-alive time below 31 s
SECONDS = 3 * EXPIRY
MARGIN = 60
KERNEL_SHARE = 0.02


def keep_alive(bench: Bench, report: Report) -> None:
    flow = Flow("239.10.10.10", 100)
    route = (SOURCE, flow.first)
    bench.set_up()
    bench.start_pim(keep_alive=EXPIRY)
    bench.start_agent(expiry=EXPIRY)
    trial = bench.trial(rate=100)
    trial.receive(bench.hosts["h1"], flow)
    time.sleep(1)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(2)
    before = bench.kernel_routes().get(route, 0)
    time.sleep(SECONDS)
    after = bench.kernel_routes().get(route, 0)
    report.check(route in bench.switch.routes(), "the route left the hardware while it flowed")
    report.figure(
        f"in {SECONDS} s the kernel counted {after - before} packets of {flow.rate:.0f}/s"
    )
    report.check(after > before, "no packet kept the route alive in the kernel")
    report.check(after - before < SECONDS * flow.rate * KERNEL_SHARE, "the kernel forwarded")
    report.lossless(trial.finish())
    aged = bench.wait_for_hardware(set(), EXPIRY + MARGIN)
    report.figure(f"hardware empty {aged:.0f} s after the last packet")


SCENARIOS = [
    Scenario(
        "keep-alive",
        "pimd keeps a route that the hardware forwards, and ages it out when traffic stops",
        keep_alive,
        needs=("agent", "FRR"),
    )
]
