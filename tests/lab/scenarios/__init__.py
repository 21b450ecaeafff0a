"""The scenarios, in the order in which they run."""

from scenario import Scenario
from scenarios import aging, churn, explanations, failures, figures, first_packets
from scenarios import joins, links, ports, restarts


def all_scenarios() -> list[Scenario]:
    modules = (first_packets, joins, churn, failures, restarts, ports, links, explanations)
    modules += (figures, aging)
    return [scenario for module in modules for scenario in module.SCENARIOS]
