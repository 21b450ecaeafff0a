"""The scenarios, in the order in which they run."""

from scenario import Scenario
from scenarios import aging, churn, failures, figures, first_packets, joins, links, ports, restarts


def all_scenarios() -> list[Scenario]:
    modules = (first_packets, joins, churn, failures, restarts, ports, links, figures, aging)
    return [scenario for module in modules for scenario in module.SCENARIOS]
