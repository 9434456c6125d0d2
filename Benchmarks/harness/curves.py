"""How cost grows with a parameter: a law, and whether the measured points follow it."""

import dataclasses
import json
import re

from .samples import OURS

_SIZES = {"B": 1, "KiB": 1 << 10, "MiB": 1 << 20}
_NUMBER = re.compile(r"^([0-9.]+)(?: (\S+))?$")

# How far a point may lie from its law, as a part of the law's value there.
TOLERANCE = 0.35


def number_of(parameter):
    """16 of "16 B", 1024 of "1 KiB", 254 of "254 phones"; None for what is more or less than a number and its unit."""
    match = _NUMBER.match(parameter)
    return float(match[1]) * _SIZES.get(match[2], 1) if match else None


@dataclasses.dataclass(frozen=True)
class Fit:
    """base + slope * x, and the largest deviation of a point as a part of the fitted value."""

    base: float
    slope: float
    deviation: float

    @property
    def follows(self):
        return self.deviation <= TOLERANCE


def points_of(results, metric, contender=OURS):
    points = []
    for case in results.cases():
        x = number_of(case[1])
        figure = results.value(case, contender)
        if case[0] == metric and x is not None and figure is not None:
            points.append((x, figure))
    return sorted(points, key=lambda point: point[0])


def _linear(xs, ys):
    """Least squares of the relative residuals, so that the small end counts as much as the large one."""
    weights = [1 / (y * y) for y in ys]
    total = sum(weights)
    mean_x = sum(w * x for w, x in zip(weights, xs)) / total
    mean_y = sum(w * y for w, y in zip(weights, ys)) / total
    variance = sum(w * (x - mean_x) ** 2 for w, x in zip(weights, xs))
    slope = sum(w * (x - mean_x) * (y - mean_y) for w, x, y in zip(weights, xs, ys)) / variance
    return mean_y - slope * mean_x, slope


def fit(points, law):
    """Fits "constant" or "linear" to points [(x, y)]; None with too few of them."""
    xs, ys = [x for x, _ in points], [y for _, y in points]
    if len(points) < 3 or min(ys) <= 0:
        return None
    base, slope = _linear(xs, ys) if law == "linear" else (sum(ys) / len(ys), 0.0)
    deviation = max(abs(y / (base + slope * x) - 1) if base + slope * x > 0 else 1.0 for x, y in points)
    return Fit(base, slope, deviation)


def load_laws(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def check(laws, results):
    """For each law: the law, and its fit (None when not measured)."""
    checked = []
    for law in laws:
        points = [(x, figure.median) for x, figure in points_of(results, law["metric"])]
        checked.append((law, fit(points, law["law"])))
    return checked
