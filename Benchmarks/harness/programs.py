"""Runs the benchmark programs, the contenders of each round one after the other, in another order each round."""

import json
import random
import subprocess
import sys
import tempfile

from . import samples

# A program that takes longer than this hangs.
TIME_LIMIT_S = 120


class ProgramFailed(Exception):
    pass


def _run(command, time_limit=TIME_LIMIT_S):
    try:
        result = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=time_limit,
                                check=False)
    except subprocess.TimeoutExpired as expired:
        raise ProgramFailed(f"{command[0]}: no end within {time_limit} s") from expired
    if result.returncode != 0:
        shown = " ".join(str(part) for part in command)
        raise ProgramFailed(f"{shown}: status {result.returncode}\n{result.stderr}{result.stdout}")
    return result.stdout


class TwoProcess:
    """The two-process programs. Each names its cases, "benchmark contender" a line, when given --list."""

    def __init__(self, programs):
        self.cases = []
        for program in programs:
            for line in _run([program, "--list"]).splitlines():
                benchmark, contender = line.split()
                self.cases.append((program, benchmark, contender))

    def benchmarks(self):
        return list(dict.fromkeys(benchmark for _, benchmark, _ in self.cases))

    def measure(self, benchmark, rounds, seconds, order=random.Random(1)):
        measured = []
        cases = [case for case in self.cases if case[1] == benchmark]
        for number in range(rounds):
            order.shuffle(cases)
            for program, _, contender in cases:
                output = _run([program, benchmark, contender, "--round", number, "--seconds", seconds])
                found, others = samples.parse_lines(output)
                for line in others:
                    print(f"bench: {benchmark} {contender}: {line}", file=sys.stderr)
                measured.extend(found)
        return measured


def google_benchmark(program, rounds, seconds, pattern="."):
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        _run([program, f"--benchmark_repetitions={rounds}", "--benchmark_enable_random_interleaving=true",
              f"--benchmark_min_time={seconds}", f"--benchmark_filter={pattern}", "--benchmark_out_format=json",
              f"--benchmark_out={out.name}"], time_limit=600)
        text = out.read()
        return samples.from_google_benchmark(json.loads(text)) if text.strip() else []
