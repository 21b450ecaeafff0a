"""The agent, the switch and the daemon end and come back."""

import random
import time

from bench import SOURCE, Bench
from processes import wait_until
from scenario import Report, Scenario
from scenarios.churn import change, other_routes, stable_flow
from traffic import Flow, Outcome

ROUTES = 1000
SWITCH_SECONDS = 10
HOLD = 10
PIM_SECONDS = 30


def agent(bench: Bench, report: Report) -> None:
    """The routes that flow must not notice; other routes change just before each kill and while no
    agent runs."""
    dice = random.Random(3)
    times = 1 if bench.short else 5
    bench.set_up()
    running = bench.start_agent()
    daemon = bench.open_routes()
    flow = stable_flow(bench, daemon, ROUTES, rate=2000)
    bench.wait_for_hardware(daemon.routes)
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    others = other_routes(200)
    settled = []
    for _ in range(times):
        for _ in range(200):
            change(daemon, others, dice)
        time.sleep(dice.uniform(0, 0.02))
        running.kill()
        time.sleep(0.3)
        for _ in range(50):
            change(daemon, others, dice)
        start = time.monotonic()
        running.start()
        bench.wait_for_hardware(daemon.routes)
        settled.append(time.monotonic() - start)
        time.sleep(0.5)
    report.figure(
        f"{times} kills; hardware equals the kernel at most {max(settled):.2f} s after the start"
    )
    report.lossless(trial.finish())
    # A graceful end leaves the forwarding in place, too.
    running.terminate()
    left = bench.switch.routes()
    report.check(left == daemon.routes, f"{len(left)} routes left in hardware after the end")


def switch(bench: Bench, report: Report) -> None:
    bench.set_up()
    bench.start_agent()
    daemon = bench.open_routes()
    flow = stable_flow(bench, daemon, ROUTES, rate=2000)
    bench.wait_for_hardware(daemon.routes)
    trial = bench.trial()
    trial.receive(bench.hosts["h1"], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    bench.switch.kill_forwarding()
    time.sleep(0.5)
    bench.switch.start_forwarding()
    start = time.monotonic()
    wait_until(bench.switch.is_forwarding, SWITCH_SECONDS, "the switch")
    answered = time.monotonic() - start
    bench.wait_for_hardware(daemon.routes, SWITCH_SECONDS)
    report.figure(
        f"{ROUTES} routes in hardware {time.monotonic() - start - answered:.2f} s after the switch"
    )
    time.sleep(2)
    outcome = trial.finish()
    (one,) = outcome.receptions
    report.control(outcome)
    report.figure(
        f"h1: silence of {one.silence:.0f} ms; the control flow, which needs no agent: "
        f"{outcome.control.silence:.0f} ms"
    )
    report.check(one.duplicated == 0, f"h1: duplicated {one.duplicated}")
    report.lossless(flow_again(bench, flow))


def flow_again(bench: Bench, flow: Flow) -> Outcome:
    """After a restart each group flows again, without a further loss."""
    trial = bench.trial()
    trial.receive(bench.hosts["h1"], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(2)
    return trial.finish()


def daemon_follows(bench: Bench, report: Report) -> None:
    bench.set_up()
    bench.start_agent(hold=0)
    daemon = bench.open_routes()
    flow = stable_flow(bench, daemon, ROUTES)
    bench.wait_for_hardware(daemon.routes)
    trial = bench.trial()
    trial.receive(bench.hosts["h1"], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    daemon.close()
    emptied = bench.wait_for_hardware(set(), 5)
    report.figure(f"hardware empty {emptied:.2f} s after the daemon's end")
    daemon = bench.open_routes()
    stable_flow(bench, daemon, ROUTES)
    report.figure(f"hardware full {bench.wait_for_hardware(daemon.routes):.2f} s after its start")
    time.sleep(1)
    (one,) = trial.finish().receptions
    report.figure(f"h1: silence of {one.silence:.0f} ms, lost {one.lost} of {sum(one.sent)}")
    report.check(one.duplicated == 0, f"h1: duplicated {one.duplicated}")
    report.lossless(flow_again(bench, flow))


def daemon_held(bench: Bench, report: Report) -> None:
    bench.set_up()
    bench.start_agent(hold=HOLD)
    daemon = bench.open_routes()
    flow = stable_flow(bench, daemon, ROUTES)
    bench.wait_for_hardware(daemon.routes)
    trial = bench.trial()
    trial.receive(bench.hosts["h1"], flow)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(1)
    daemon.close()
    time.sleep(3)
    daemon = bench.open_routes()
    stable_flow(bench, daemon, ROUTES)
    time.sleep(1)
    report.lossless(trial.finish())
    # A daemon that returns with fewer routes: the others leave the hardware after the hold.
    daemon.close()
    time.sleep(0.5)
    daemon = bench.open_routes()
    stable_flow(bench, daemon, ROUTES // 2)
    released = bench.wait_for_hardware(daemon.routes, HOLD + 10)
    report.figure(f"routes that did not return left the hardware after {released:.2f} s")
    report.check(released > 1, "the routes were not held")


def pim(bench: Bench, report: Report) -> None:
    flow = Flow("239.9.9.9", 1000)
    bench.set_up()
    daemon = bench.start_pim()
    bench.start_agent()
    trial = bench.trial()
    for host in ("h1", "h2"):
        trial.receive(bench.hosts[host], flow)
    time.sleep(1)
    trial.send(bench.hosts["h0"], flow)
    time.sleep(2)
    daemon.kill_pimd()
    time.sleep(1)
    start = time.monotonic()
    daemon.start_pimd()
    route = (SOURCE, flow.first)
    wait_until(lambda: route in bench.switch.routes(), PIM_SECONDS, "the route in hardware")
    report.figure(f"route in hardware {time.monotonic() - start:.2f} s after pimd's start")
    time.sleep(8)
    outcome = trial.finish()
    report.control(outcome)
    for one in outcome.receptions:
        report.figure(f"{one.name}: silence of {one.silence:.0f} ms, duplicated {one.duplicated}")
        report.check(outcome.duplicated_beyond(one) == 0, f"{one.name}: duplicated packets")
        report.check(one.silence < PIM_SECONDS * 1e3, f"{one.name}: no traffic after the restart")


SCENARIOS = [
    Scenario(
        "agent-killed", "kill -9 of the agent under 1,000 routes and traffic", agent, short=True
    ),
    Scenario(
        "switch-restarted", "the switch ends and starts with empty tables", switch, short=True
    ),
    Scenario("daemon-restarted", "a daemon's table empties: the hardware follows", daemon_follows),
    Scenario("daemon-held", "a daemon's table empties: the hardware holds", daemon_held),
    Scenario("pim-restarted", "pimd is killed and started", pim, needs=("agent", "FRR")),
]
