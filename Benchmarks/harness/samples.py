"""Samples: one measured value of one contender in one round."""

import dataclasses
import json

# How the programs name whom they measure; "ours" is the product.
OURS = "ours"
CONTENDERS = (
    OURS, "minimal", "prescribed", "prescribed-copying",
    "zeromq", "nng", "sd-bus", "grpc", "protobuf", "spdlog", "asio", "openssl",
    "recursive-mutex", "eventfd", "condition-variable",
)

_NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}

# What Google Benchmark appends to a case's name by itself.
_NAME_SUFFIXES = ("real_time", "process_time", "manual_time")

# Counters of a Google Benchmark case that are samples of their own, with their units.
_COUNTERS = {"allocations": "allocations", "bytes": "B"}


@dataclasses.dataclass(frozen=True)
class Sample:
    metric: str
    parameter: str
    contender: str
    unit: str
    better: str  # "lower" or "higher"
    round: int
    value: float

    @property
    def case(self):
        return self.metric, self.parameter


def parse_lines(text):
    """Samples of a program that prints one JSON object a line, and the lines that are none."""
    samples, others = [], []
    for line in text.splitlines():
        if line.startswith("{"):
            samples.append(Sample(**json.loads(line)))
        elif line.strip():
            others.append(line)
    return samples, others


def _case_of(name):
    """Metric, parameter and contender of "metric/parameter/contender"; None for a case named otherwise."""
    parts = [part for part in name.split("/") if part not in _NAME_SUFFIXES and ":" not in part]
    return parts if len(parts) == 3 and parts[2] in CONTENDERS else None


def _samples_of_run(run, case):
    metric, parameter, contender = case
    index = run.get("repetition_index", 0)
    time = run["cpu_time" if "process_time" in run["name"] else "real_time"]
    yield Sample(metric, parameter, contender, "ns", "lower", index, time * _NANOSECONDS[run["time_unit"]])
    for counter, unit in _COUNTERS.items():
        if counter in run:
            yield Sample(f"{metric}-{counter}", parameter, contender, unit, "lower", index, run[counter])


def from_google_benchmark(document):
    """Samples of the JSON that a Google Benchmark program writes; a repetition counts as a round."""
    samples = []
    for run in document["benchmarks"]:
        case = _case_of(run["name"])
        if case is not None and run.get("run_type") == "iteration" and not run.get("error_occurred"):
            samples.extend(_samples_of_run(run, case))
    return samples


def without_first_round(samples):
    """The first round of each case warms caches, allocators and clocks; a lone round is kept."""
    first, last = {}, {}
    for sample in samples:
        first[sample.case] = min(first.get(sample.case, sample.round), sample.round)
        last[sample.case] = max(last.get(sample.case, sample.round), sample.round)
    return [s for s in samples if s.round != first[s.case] or first[s.case] == last[s.case]]
