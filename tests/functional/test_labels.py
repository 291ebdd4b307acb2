"""Every test of ctest has exactly one of the labels in CONTRIBUTING.md."""
import json
import os
import subprocess
import unittest

LABELS = {"unit", "functional", "physics", "slow"}


class Labels(unittest.TestCase):
    def test_every_test_has_one_label(self):
        listed = subprocess.run(["ctest", "--test-dir", os.environ["VORLEN_BUILD"], "--show-only=json-v1"],
                                capture_output=True, encoding="utf-8", check=True)
        tests = json.loads(listed.stdout)["tests"]
        self.assertGreater(len(tests), 20)
        for test in tests:
            labels = [label for one in test["properties"] if one["name"] == "LABELS" for label in one["value"]]
            # ctest knows the cases of a test program only after it has been built.
            if not test["name"].endswith("_NOT_BUILT"):
                self.assertEqual((test["name"], len(labels), set(labels) - LABELS), (test["name"], 1, set()))


if __name__ == "__main__":
    unittest.main()
