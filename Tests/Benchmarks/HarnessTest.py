"""The harness of scripts/bench on samples written down by hand."""

import dataclasses
import json
import pathlib
import subprocess
import tempfile
import unittest

from harness import baseline, curves, goals, report, samples
from harness.ratios import Results, figure_of

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent.parent


def sample(contender, number, value, metric="trip", parameter="9 B", better="lower"):
    return samples.Sample(metric, parameter, contender, "ns", better, number, value)


def results_of(ours, others, **where):
    pairs = [sample("ours", i, v, **where) for i, v in enumerate(ours)]
    pairs += [sample("prescribed", i, v, **where) for i, v in enumerate(others)]
    return Results(pairs)


class SamplesTest(unittest.TestCase):
    def test_lines_that_are_no_samples_are_told_apart(self):
        line = json.dumps({"metric": "trip", "parameter": "9 B", "contender": "ours", "unit": "ns",
                           "better": "lower", "round": 3, "value": 1.5})
        found, others = samples.parse_lines(f"{line}\n[error] something\n\n")
        self.assertEqual(found, [sample("ours", 3, 1.5)])
        self.assertEqual(others, ["[error] something"])

    def test_google_benchmark_times_become_nanoseconds_and_counters_metrics(self):
        run = {"name": "encode/3 texts/ours/real_time", "run_type": "iteration", "repetition_index": 2,
               "real_time": 2.0, "cpu_time": 1.0, "time_unit": "us", "allocations": 4.0}
        found = samples.from_google_benchmark({"benchmarks": [run]})
        self.assertEqual([(s.metric, s.round, s.value) for s in found],
                         [("encode", 2, 2000.0), ("encode-allocations", 2, 4.0)])

    def test_google_benchmark_cases_of_another_name_and_aggregates_are_left_out(self):
        runs = [{"name": "Pass/10000/100", "run_type": "iteration", "real_time": 1, "cpu_time": 1, "time_unit": "ns"},
                {"name": "encode/3 texts/ours_mean", "run_type": "aggregate", "real_time": 1, "cpu_time": 1,
                 "time_unit": "ns"}]
        self.assertEqual(samples.from_google_benchmark({"benchmarks": runs}), [])

    def test_the_first_round_is_dropped_unless_it_is_the_only_one(self):
        two = [sample("ours", 0, 9.0), sample("ours", 1, 1.0)]
        self.assertEqual(samples.without_first_round(two), two[1:])
        self.assertEqual(samples.without_first_round(two[:1]), two[:1])


class RatiosTest(unittest.TestCase):
    def test_a_ratio_is_the_median_of_the_rounds_own_ratios(self):
        # The second round was slow for both: its ratio is like the others'.
        figure = results_of([10, 100, 11], [10, 100, 10]).ratio(("trip", "9 B"), "prescribed")
        self.assertEqual(figure.median, 1.0)
        self.assertEqual(figure.rounds, 3)

    def test_only_rounds_in_which_both_were_measured_count(self):
        figure = results_of([10, 20], [10]).ratio(("trip", "9 B"), "prescribed")
        self.assertEqual((figure.median, figure.rounds), (1.0, 1))

    def test_the_spread_is_the_middle_half(self):
        self.assertEqual(figure_of([1, 2, 3, 4, 5]).spread, 2)

    def test_what_was_not_measured_has_no_ratio(self):
        results = results_of([1], [1])
        self.assertIsNone(results.ratio(("trip", "9 B"), "zeromq"))
        self.assertIsNone(results.ratio(("other", "9 B"), "prescribed"))


class GoalsTest(unittest.TestCase):
    def verdict(self, limit, ours, others, bound="at_most"):
        goal = goals.Goal("trip", "9 B", "prescribed", bound, limit)
        return goals.judge([goal], results_of(ours, others))[0].word

    def test_a_limit_itself_is_still_met(self):
        self.assertEqual(self.verdict(1.1, [11], [10]), "met")
        self.assertEqual(self.verdict(1.1, [12], [10]), "MISSED")
        self.assertEqual(self.verdict(0.9, [8], [10], "at_least"), "MISSED")

    def test_a_goal_without_a_contender_is_for_the_products_own_value(self):
        goal = goals.Goal("trip", "9 B", "", "at_most", 20)
        self.assertEqual(goals.judge([goal], results_of([19], [10]))[0].word, "met")

    def test_the_bare_calls_own_ratio_stands_beside_a_goal_against_somebody_else(self):
        results = Results([sample("ours", 0, 12), sample("prescribed", 0, 11), sample("zeromq", 0, 10)])
        verdict = goals.judge([goals.Goal("trip", "9 B", "zeromq", "at_most", 1)], results)[0]
        self.assertEqual((verdict.figure.median, verdict.bare.median), (1.2, 1.1))

    def test_what_was_not_measured_is_neither_met_nor_missed(self):
        goal = goals.Goal("trip", "64 B", "prescribed", "at_most", 1)
        self.assertEqual(goals.judge([goal], results_of([1], [1]))[0].word, "not measured")


class BaselineTest(unittest.TestCase):
    def compare(self, old, new, better="lower"):
        old_rows = baseline.ratios_of(results_of(*old, better=better))
        return baseline.compare(old_rows, baseline.ratios_of(results_of(*new, better=better)))

    def test_a_ratio_that_grew_beyond_its_spread_is_worse(self):
        worse, _ = self.compare(([10, 10, 10], [10, 10, 10]), ([12, 12, 12], [10, 10, 10]))
        self.assertEqual([(old["ratio"], new["ratio"]) for old, new in worse], [(1.0, 1.2)])

    def test_a_change_within_the_spreads_is_not_worse(self):
        self.assertEqual(self.compare(([8, 10, 12], [10, 10, 10]), ([11, 11, 11], [10, 10, 10]))[0], [])
        self.assertEqual(self.compare(([10, 10, 10], [10, 10, 10]), ([8, 11, 14], [10, 10, 10]))[0], [])

    def test_where_higher_is_better_a_smaller_ratio_is_worse(self):
        fast, slow = ([10, 10, 10], [10, 10, 10]), ([8, 8, 8], [10, 10, 10])
        self.assertEqual(len(self.compare(fast, slow, "higher")[0]), 1)
        self.assertEqual(self.compare(slow, fast, "higher")[0], [])

    def test_what_the_baseline_has_and_the_run_has_not_is_named(self):
        rows = baseline.ratios_of(results_of([1], [1]))
        self.assertEqual(baseline.compare(rows, [])[1], [("trip", "9 B", "prescribed")])


class CurvesTest(unittest.TestCase):
    def test_parameters_with_a_number_in_front_are_points(self):
        self.assertEqual([curves.number_of(p) for p in ("16 B", "4 KiB", "254 phones", "idle", "1 due of 9")],
                         [16, 4096, 254, None, None])

    def test_a_line_is_found_and_followed(self):
        fitted = curves.fit([(x, 100 + 2 * x) for x in (1, 10, 100, 1000)], "linear")
        self.assertAlmostEqual(fitted.base, 100)
        self.assertAlmostEqual(fitted.slope, 2)
        self.assertTrue(fitted.follows)

    def test_a_square_follows_no_line_and_a_line_is_not_constant(self):
        self.assertFalse(curves.fit([(x, x * x) for x in (1, 10, 100, 1000)], "linear").follows)
        self.assertFalse(curves.fit([(x, x) for x in (1, 10, 100)], "constant").follows)


class ReportTest(unittest.TestCase):
    def test_quantities_are_shown_in_the_unit_that_suits_them(self):
        self.assertEqual(report.quantity(12345, "ns"), "12.3 us")
        self.assertEqual(report.quantity(2048, "B"), "2 KiB")
        self.assertEqual(report.quantity(7, "handshakes/s"), "7 handshakes/s")

    def test_new_figures_take_the_place_of_the_old_ones(self):
        origin = dict.fromkeys(("date", "commit", "cpu", "cpus", "compiler", "kernel", "load"), "x")
        section = report.page_section(origin, results_of([11], [10]), [], [])
        page = report.put_into_page(f"before\n{section}\nafter", section.replace("x", "y"))
        self.assertTrue(page.startswith("before\n") and page.endswith("\nafter"))
        self.assertEqual(page.count("### Goals"), 1)


class CommandTest(unittest.TestCase):
    """scripts/bench on a run that was measured elsewhere."""

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.place = pathlib.Path(self.directory.name)
        pairs = [sample(name, i, value, parameter=parameter) for i in range(4) for name, value in
                 (("ours", 12), ("prescribed", 10)) for parameter in ("1 phone", "2 phones", "3 phones", "idle")]
        self.write("results.json", {"machine": {}, "quick": False, "samples": [dataclasses.asdict(s) for s in pairs]})

    def write(self, name, document):
        (self.place / name).write_text(json.dumps(document), encoding="utf-8")

    def run_bench(self, *options):
        return subprocess.run([REPOSITORY / "scripts/bench", "--from", self.place / "results.json",
                               "--out", self.place / "out", *options], capture_output=True, text=True, check=False)

    def baseline_row(self, ratio):
        return {"metric": "trip", "parameter": "idle", "against": "prescribed", "better": "lower", "ratio": ratio,
                "spread": 0.05}

    def test_every_curve_and_every_comparison_is_drawn_in_both_formats(self):
        self.assertEqual(self.run_bench().returncode, 0)
        drawn = {path.name for path in (self.place / "out").iterdir() if path.stat().st_size > 0}
        self.assertEqual(drawn, {"trip.png", "trip.svg", "trip-idle.png", "trip-idle.svg"})

    def test_what_became_worse_is_named_and_fails(self):
        self.write("baseline.json", [self.baseline_row(1.0)])
        result = self.run_bench("--compare", str(self.place / "baseline.json"))
        self.assertEqual(result.returncode, 1)
        self.assertIn("WORSE: trip, idle, against prescribed: 1.0 -> 1.2", result.stdout)

    def test_what_is_as_before_passes(self):
        self.write("baseline.json", [self.baseline_row(1.16)])
        result = self.run_bench("--compare", str(self.place / "baseline.json"))
        self.assertEqual(result.returncode, 0)
        self.assertNotIn("WORSE", result.stdout)

    def test_a_part_of_the_figures_becomes_no_baseline(self):
        result = self.run_bench("--quick", "--write-baseline")
        self.assertEqual(result.returncode, 2)
        self.assertIn("for a whole run", result.stderr)


if __name__ == "__main__":
    unittest.main()
