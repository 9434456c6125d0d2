"""Takes each figure of the receiver's process once: BUILD_DIRECTORY is the only argument."""

import pathlib
import sys
import unittest

from harness import process_figures


class ProcessFiguresTest(unittest.TestCase):
    def test_every_figure_is_taken_and_phones_take_memory(self):
        measured = process_figures.measure(BUILD, 1, 0.2)
        found = {sample.case: sample.value for sample in measured}
        self.assertGreater(found["process-start", "four sockets"], 0)
        self.assertGreater(found["idle-wake-ups", "connected"], 0)
        self.assertIn("stripped-size", [case[0] for case in found])
        self.assertGreater(found["resident-memory", "254 phones"], found["resident-memory", "0 phones"])


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop())
    unittest.main()
