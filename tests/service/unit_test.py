#!/usr/bin/python3 -B
"""What systemd says of docs/quarlo-input.service, without running anything. (What it does: script/test-service.)"""

import pathlib
import subprocess
import tempfile
import unittest

UNIT = pathlib.Path(__file__).resolve().parents[2] / "docs/quarlo-input.service"
EXPOSURE = 0.4  # of 10, as docs/permissions.md says


def analyze(command, unit, *options):
    return subprocess.run(["systemd-analyze", command, *options, unit], capture_output=True, text=True, check=False,
                          env={"SYSTEMD_COLORS": "0", "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8"})


def exposure_is_at_most(limit, unit):
    return analyze("security", unit, "--offline=true", "--no-pager", f"--threshold={round(10 * limit)}").returncode == 0


class UnitTest(unittest.TestCase):
    def test_each_line_is_understood(self):
        with tempfile.TemporaryDirectory() as folder:
            # The program need not be installed.
            unit = pathlib.Path(folder, UNIT.name)
            unit.write_text(UNIT.read_text(encoding="utf-8").replace("/usr/bin/quarlo-input", "/bin/true"), encoding="utf-8")
            result = analyze("verify", unit, "--man=no")
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_it_exposes_as_little_as_is_said(self):
        self.assertTrue(exposure_is_at_most(EXPOSURE, UNIT))
        self.assertFalse(exposure_is_at_most(EXPOSURE - 0.1, UNIT))
        self.assertIn(f"**{EXPOSURE}**", UNIT.with_name("permissions.md").read_text(encoding="utf-8"))


if __name__ == "__main__":
    unittest.main()
