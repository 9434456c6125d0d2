"""Goals: what a ratio, or a value of the product itself, has to be. Nothing fails by them; they are shown."""

import dataclasses
import json
import operator

from .samples import OURS

_BARE = "prescribed"

_BOUNDS = {
    "at_most": ("<=", operator.le),
    "at_least": (">=", operator.ge),
}


@dataclasses.dataclass(frozen=True)
class Goal:
    metric: str
    parameter: str
    against: str  # empty for a goal for the product's own value
    bound: str
    limit: float

    @property
    def case(self):
        return self.metric, self.parameter

    @property
    def sign(self):
        return _BOUNDS[self.bound][0]

    def is_met(self, value):
        return _BOUNDS[self.bound][1](value, self.limit)


@dataclasses.dataclass(frozen=True)
class Verdict:
    goal: Goal
    figure: object  # None when not measured
    bare: object = None  # the same of the bare system calls, where they were measured

    @property
    def word(self):
        if self.figure is None:
            return "not measured"
        return "met" if self.goal.is_met(self.figure.median) else "MISSED"


def _goal_of(row):
    bound = next(name for name in _BOUNDS if name in row)
    return Goal(row["metric"], row["parameter"], row.get("against", ""), bound, row[bound])


def load(path):
    with open(path, encoding="utf-8") as file:
        return [_goal_of(row) for row in json.load(file)]


def _figure(goal, results, contender):
    if goal.against == contender:
        return None
    return results.ratio(goal.case, goal.against, contender) if goal.against else results.value(goal.case, contender)


def judge(goals, results):
    verdicts = []
    for goal in goals:
        verdicts.append(Verdict(goal, _figure(goal, results, OURS), _figure(goal, results, _BARE)))
    return verdicts
