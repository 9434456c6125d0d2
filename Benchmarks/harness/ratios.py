"""Ratios between contenders, taken round by round so that what slows a whole round cancels out."""

import collections
import dataclasses
import statistics

from .samples import OURS


@dataclasses.dataclass(frozen=True)
class Figure:
    """The median over the rounds, and the range that its middle half lies in."""

    median: float
    low: float
    high: float
    rounds: int

    @property
    def spread(self):
        return self.high - self.low


def figure_of(values):
    values = sorted(values)
    if len(values) < 3:
        return Figure(statistics.median(values), values[0], values[-1], len(values))
    low, _, high = statistics.quantiles(values, n=4, method="inclusive")
    return Figure(statistics.median(values), low, high, len(values))


class Results:
    """Samples by case and contender."""

    def __init__(self, samples):
        self.units, self.better = {}, {}
        self._values = collections.defaultdict(lambda: collections.defaultdict(lambda: collections.defaultdict(list)))
        for sample in samples:
            self.units[sample.case] = sample.unit
            self.better[sample.case] = sample.better
            self._values[sample.case][sample.contender][sample.round].append(sample.value)

    def cases(self):
        return list(self._values)

    def contenders(self, case):
        return list(self._values[case]) if case in self._values else []

    def value(self, case, contender):
        """A contender's own figure; None where it was not measured."""
        rounds = self._rounds(case, contender)
        return figure_of(rounds.values()) if rounds else None

    def ratio(self, case, against, contender=OURS):
        """contender / against, of the rounds in which both were measured; None where there is none."""
        mine, others = self._rounds(case, contender), self._rounds(case, against)
        ratios = [mine[r] / others[r] for r in mine if others.get(r)]
        return figure_of(ratios) if ratios else None

    def _rounds(self, case, contender):
        if contender not in self.contenders(case):
            return {}
        return {r: statistics.median(values) for r, values in self._values[case][contender].items()}
