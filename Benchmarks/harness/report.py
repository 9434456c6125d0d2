"""How results read: the table on the console and the page Docs/performance.md."""

from . import curves
from .samples import OURS

_TIME_STEPS = ((1e9, "s"), (1e6, "ms"), (1e3, "us"), (1, "ns"))
_RATE_STEPS = ((1e9, "GB/s"), (1e6, "MB/s"), (1e3, "kB/s"), (1, "B/s"))
_SIZE_STEPS = ((1 << 20, "MiB"), (1 << 10, "KiB"), (1, "B"))
_STEPS = {"ns": _TIME_STEPS, "B/s": _RATE_STEPS, "B": _SIZE_STEPS}

_PAGE_BEGIN = "<!-- figures: written by scripts/bench --write-page -->"
_PAGE_END = "<!-- end of the figures -->"


def quantity(value, unit):
    for factor, name in _STEPS.get(unit, ()):
        if abs(value) >= factor:
            return f"{value / factor:.3g} {name}"
    return f"{value:.4g} {unit}"


def columns(rows):
    """Rows of texts as lines, each column as wide as its widest text."""
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return ["  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip() for row in rows]


def _spread_of(figure):
    return f"{figure.low:.3g}..{figure.high:.3g}"


def value_rows(results):
    rows = [["metric", "parameter", "contender", "median", "ours/it", "middle half"]]
    for case in results.cases():
        for contender in results.contenders(case):
            figure = results.value(case, contender)
            ratio = results.ratio(case, contender) if contender != OURS else None
            rows.append([*case, contender, quantity(figure.median, results.units[case]),
                         f"{ratio.median:.3g}" if ratio else "", _spread_of(ratio) if ratio else ""])
    return rows


def goal_rows(verdicts, results):
    rows = [["metric", "parameter", "against", "goal", "measured", "middle half", "bare calls", "verdict"]]
    for verdict in verdicts:
        goal, figure = verdict.goal, verdict.figure
        # A goal without a contender is for the product's own value, in the metric's unit.
        unit = "" if goal.against else results.units.get(goal.case, "")
        show = lambda value, unit=unit: quantity(value, unit) if unit else f"{value:.3g}"  # noqa: E731
        rows.append([goal.metric, goal.parameter, goal.against or "(value)", f"{goal.sign} {show(goal.limit)}",
                     *([show(figure.median), f"{show(figure.low)}..{show(figure.high)}"] if figure else ["", ""]),
                     show(verdict.bare.median) if verdict.bare else "", verdict.word])
    return rows


def law_rows(checked, results):
    rows = [["metric", "law", "base", "per unit of the parameter", "largest deviation", "verdict"]]
    for law, fitted in checked:
        if fitted is None:
            rows.append([law["metric"], law["law"], "", "", "", "not measured"])
            continue
        unit = next(results.units[case] for case in results.cases() if case[0] == law["metric"])
        rows.append([law["metric"], law["law"], quantity(fitted.base, unit), f"{fitted.slope:.3g} {unit}",
                     f"{fitted.deviation:.0%}", "holds" if fitted.follows else "DOES NOT HOLD"])
    return rows


def console(results, verdicts, checked):
    lines = columns(value_rows(results))
    lines += ["", "Goals"] + columns(goal_rows(verdicts, results))
    lines += ["", "Laws"] + columns(law_rows(checked, results))
    return "\n".join(lines)


def _markdown(rows):
    head, *body = ["| " + " | ".join(row) + " |" for row in rows]
    return [head, "|" + "---|" * len(rows[0]), *body]


def page_section(machine, results, verdicts, checked):
    """The part of the page that a run writes."""
    lines = [_PAGE_BEGIN, ""]
    lines.append("Measured {date} at commit {commit} on {cpu} ({cpus} processors), {compiler}, Linux {kernel}, "
                 "load {load} at the start.".format(**machine))
    lines += ["", "### Goals", "", *_markdown(goal_rows(verdicts, results))]
    lines += ["", "### Laws", "", *_markdown(law_rows(checked, results))]
    lines += ["", "### All figures", "", *_markdown(value_rows(results)), "", _PAGE_END]
    return "\n".join(lines)


def put_into_page(text, section):
    """The page with its old figures replaced. @raises ValueError for a page without their place."""
    begin, end = text.index(_PAGE_BEGIN), text.index(_PAGE_END) + len(_PAGE_END)
    return text[:begin] + section + text[end:]
