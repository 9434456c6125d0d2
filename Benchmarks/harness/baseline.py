"""A baseline: the ratios of an earlier run, against which a later one is held.

Ratios travel between machines better than times do. A ratio is worse when it moved to the wrong side by more than
both runs' spreads together and by more than a floor, below which figures differ from run to run of the same build.
"""

import json

from .samples import OURS

NOISE_FLOOR = 0.03  # as a part of the ratio


def ratios_of(results):
    rows = []
    for case in results.cases():
        for against in results.contenders(case):
            figure = results.ratio(case, against) if against != OURS else None
            if figure is not None:
                rows.append({
                    "metric": case[0], "parameter": case[1], "against": against, "better": results.better[case],
                    "ratio": round(figure.median, 4), "spread": round(figure.spread, 4),
                })
    return rows


def save(path, results):
    with open(path, "w", encoding="utf-8") as file:
        json.dump(ratios_of(results), file, indent=1)
        file.write("\n")


def load(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def _key(row):
    return row["metric"], row["parameter"], row["against"]


def _worsening(old, new):
    change = new["ratio"] - old["ratio"]
    return change if new["better"] == "lower" else -change


def compare(old_rows, new_rows):
    """The pairs (old, new) that became worse, the worst first, and the keys of the baseline that are missing."""
    new_by_key = {_key(row): row for row in new_rows}
    worse, missing = [], []
    for old in old_rows:
        new = new_by_key.get(_key(old))
        if new is None:
            missing.append(_key(old))
            continue
        tolerance = max(old["spread"] + new["spread"], NOISE_FLOOR * old["ratio"])
        if _worsening(old, new) > tolerance:
            worse.append((old, new))
    worse.sort(key=lambda pair: -_worsening(*pair) / pair[0]["ratio"])
    return worse, missing
