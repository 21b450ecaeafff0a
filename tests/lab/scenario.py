"""The form of a scenario, and the report that it fills."""

from collections.abc import Callable
from dataclasses import dataclass, field

from bench import Bench
from traffic import Outcome, Reception


class Skipped(Exception):
    """Names the part that the scenario lacks."""


@dataclass
class Report:
    figures: list[str] = field(default_factory=list)
    faults: list[str] = field(default_factory=list)
    log: str = ""  # end of the agent's log
    lenient: bool = False  # a time beyond its limit is no fault

    def figure(self, text: str) -> None:
        self.figures.append(text)

    def check(self, ok: bool, fault: str) -> None:
        if not ok:
            self.faults.append(fault)

    def append(self, other: "Report") -> None:
        self.figures += other.figures
        self.faults += other.faults

    def at_most(self, name: str, value: float, limit: float, unit: str) -> None:
        exceeds = "" if value <= limit else ", exceeded"
        self.figure(f"{name}: {value:.2f} {unit} (limit {limit:.4g}{exceeds})")
        self.check(
            not exceeds or self.lenient, f"{name}: {value:.2f} {unit} exceeds {limit:.4g}"
        )

    def lossless(self, outcome: Outcome, receptions: list[Reception] | None = None) -> None:
        """Checks that each host received each packet of its flows once."""
        wanted = outcome.receptions if receptions is None else receptions
        self.control(outcome)
        for one in wanted:
            lost, duplicated = outcome.lost_beyond(one), outcome.duplicated_beyond(one)
            name = f"{one.name}, {one.flow.first}"
            self.figure(
                f"{name}: heard {one.heard} of {one.flow.count} groups, {sum(one.sent)} packets "
                f"sent; lost {lost}, duplicated {duplicated} beyond the control flow"
            )
            self.check(one.heard == one.flow.count, f"{name}: heard {one.heard} groups only")
            self.check(one.overflow == 0, f"{name}: the receiver itself dropped packets")
            self.check(lost == 0, f"{name}: lost {lost}")
            self.check(duplicated == 0, f"{name}: duplicated {duplicated}")

    def control(self, outcome: Outcome) -> None:
        control = outcome.control
        self.figure(
            f"control flow: lost {control.lost}, duplicated {control.duplicated} of "
            f"{sum(control.sent)}, longest outage {control.worst_outage:.2f} ms"
        )


@dataclass(frozen=True)
class Scenario:
    name: str
    title: str
    run: Callable[[Bench, Report], None]
    needs: tuple[str, ...] = ("agent",)
    short: bool = False  # belongs to the short form
