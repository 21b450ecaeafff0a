"""Figures without traffic: the switch's own pace, and an idle agent."""

import statistics
import time

from bench import SOURCE, Bench
from openflow import (
    ADD,
    FLOW_MOD,
    GROUP_MOD,
    MODIFY,
    Connection,
    delete_all_groups,
    flow,
    group,
)
from scenario import Report, Scenario
from traffic import Flow

COUNT = 10_000
RAW_GROUP = 50_000
RESIDENT_MB = 64
IDLE_SECONDS = 20
WAKE_UPS = 1.0


def fill_raw(connection: Connection, count: int) -> tuple[float, float]:
    """Replaces all groups by `count` raw ones with a flow each. Returns both times in ms."""
    connection.write(GROUP_MOD, [delete_all_groups()])
    groups = [group(ADD, RAW_GROUP + i, [2, 3]) for i in range(count)]
    every = Flow("232.3.0.0", 1, count)
    flows = [flow(1, SOURCE, g, RAW_GROUP + i) for i, g in enumerate(every.groups)]
    return connection.write(GROUP_MOD, groups), connection.write(FLOW_MOD, flows)


def raw(bench: Bench, report: Report) -> None:
    bench.set_up()
    connection = Connection(bench.switch.address.removeprefix("unix:"))
    groups, flows = fill_raw(connection, COUNT)
    report.figure(f"pipelined: {COUNT} groups {groups:.1f} ms, {COUNT} flows {flows:.1f} ms")
    found = len(bench.switch.routes())
    report.check(found == COUNT, f"{found} flows in the switch")
    changed = [group(MODIFY, RAW_GROUP + i, [5, 3]) for i in range(COUNT)]
    report.figure(f"in place: {COUNT} groups {connection.write(GROUP_MOD, changed):.1f} ms")
    single = [
        connection.write(GROUP_MOD, [group(MODIFY, RAW_GROUP + i, [2, 3])]) for i in range(500)
    ]
    report.figure(f"one group and a barrier: median {statistics.median(single):.3f} ms")
    deleted = connection.write(GROUP_MOD, [delete_all_groups()])
    report.figure(f"all groups and their flows deleted: {deleted:.1f} ms")
    report.check(connection.errors == 0, f"{connection.errors} errors")
    connection.close()


def idle(bench: Bench, report: Report) -> None:
    bench.set_up()
    agent = bench.start_agent()
    daemon = bench.open_routes()
    every = Flow("232.3.0.0", 1, COUNT)
    start = time.monotonic()
    for address in every.groups:
        daemon.put((SOURCE, address), "rtr0", ["rtr1", "rtr2"])
    written = time.monotonic() - start
    bench.wait_for_hardware(daemon.routes, 60)
    report.figure(
        f"{COUNT} routes: in the kernel after {written:.2f} s, in hardware after "
        f"{time.monotonic() - start:.2f} s"
    )
    time.sleep(5)
    before = agent.wake_ups()
    time.sleep(IDLE_SECONDS)
    rate = (agent.wake_ups() - before) / IDLE_SECONDS
    report.at_most("wake-ups while idle", rate, WAKE_UPS, "a second")
    resident = agent.resident_kilobytes() / 1024
    report.at_most(f"resident memory at {COUNT} routes", resident, RESIDENT_MB, "MB")


SCENARIOS = [
    Scenario("raw", "the switch's own pace, without an agent", raw, needs=(), short=True),
    Scenario("idle", "an agent with 10,000 routes and nothing to do", idle),
]
