"""Plots: each curve over its parameter, every contender a line; bars for what is not a curve. By gnuplot."""

import pathlib
import shutil
import subprocess

from . import curves

_FORMATS = {"png": "pngcairo size 1000,640 font 'sans,11'", "svg": "svg size 1000,640 dynamic background 'white'"}
_MIN_POINTS = 3


def _data_block(index, points):
    rows = "\n".join(f"{x:g} {figure.median:g} {figure.low:g} {figure.high:g}" for x, figure in points)
    return f"$d{index} << EOD\n{rows}\nEOD"


def _header(terminal, output, title):
    return [f"set terminal {terminal}", f"set output '{output}'", f"set title '{title}'", "set grid"]


def _run(lines):
    subprocess.run(["gnuplot"], input="\n".join(lines) + "\n", text=True, check=True)


def _curve(directory, results, metric, unit, series):
    blocks = [_data_block(i, points) for i, (_, points) in enumerate(series)]
    lines = [f"$d{i} using 1:2 with linespoints title '{name}', $d{i} using 1:2:3:4 with yerrorbars notitle lc {i + 1}"
             .replace("linespoints", f"linespoints lc {i + 1}") for i, (name, _) in enumerate(series)]
    for suffix, terminal in _FORMATS.items():
        _run(_header(terminal, directory / f"{metric}.{suffix}", metric) + [
            "set logscale xy", "set key left top", f"set ylabel '{unit}'", *blocks, "plot " + ", ".join(lines)])


def _bars(directory, results, case):
    names = [n for n in results.contenders(case)]
    rows = "\n".join(f"'{name}' {results.value(case, name).median:g} {results.value(case, name).low:g} "
                     f"{results.value(case, name).high:g}" for name in names)
    stem = f"{case[0]}-{case[1]}".replace(" ", "-").replace("/", "-")
    for suffix, terminal in _FORMATS.items():
        _run(_header(terminal, directory / f"{stem}.{suffix}", f"{case[0]}, {case[1]}") + [
            "set style fill solid 0.5", "set boxwidth 0.6", "set yrange [0:*]", f"set ylabel '{results.units[case]}'",
            f"$d << EOD\n{rows}\nEOD",
            "plot $d using 0:2:xtic(1) with boxes notitle, $d using 0:2:3:4 with yerrorbars notitle"])


def draw(directory, results):
    """@return the files' stems; none where gnuplot is missing."""
    directory = pathlib.Path(directory)
    if shutil.which("gnuplot") is None:
        return []
    directory.mkdir(parents=True, exist_ok=True)
    drawn = []
    for metric in dict.fromkeys(case[0] for case in results.cases()):
        cases = [case for case in results.cases() if case[0] == metric]
        names = dict.fromkeys(name for case in cases for name in results.contenders(case))
        series = [(name, curves.points_of(results, metric, name)) for name in names]
        series = [(name, points) for name, points in series if len(points) >= _MIN_POINTS]
        if series:
            _curve(directory, results, metric, results.units[cases[0]], series)
            drawn.append(metric)
        for case in cases:
            on_curve = series and curves.number_of(case[1]) is not None
            if not on_curve and len(results.contenders(case)) > 1:
                _bars(directory, results, case)
                drawn.append(f"{case[0]}, {case[1]}")
    return drawn
