#!/usr/bin/python3 -B
"""Whether interface.py sees what breaks applications: it is shown copies of the headers with such a change."""

import pathlib
import shutil
import tempfile
import unittest

import interface

READER = "input/linux_input_reader.h"
COMPILER, TARGET = "g++-12", interface.NAMED_FOR


class ChangedHeadersTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.before = interface.problems_of(COMPILER, TARGET)

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = pathlib.Path(temporary.name)
        for folder in ("input", "logging", "msg", "sim"):
            shutil.copytree(interface.ROOT / folder, self.root / folder)

    def change(self, header, before, after):
        text = (self.root / header).read_text(encoding="utf-8")
        self.assertEqual(text.count(before), 1, f"{header} has not one of: {before}")
        (self.root / header).write_text(text.replace(before, after), encoding="utf-8")

    def problems(self):
        """Those of the change."""
        return [problem.replace("components::input::", "")
                for problem in interface.problems_of(COMPILER, TARGET, self.root) if problem not in self.before]

    def test_fields_in_another_order_break_it(self):
        self.change(READER, "  std::int32_t pointerX = 0; ", "  std::int32_t pointerWasY = 0; ")
        self.change(READER, "  std::int32_t pointerY = 0; ", "  std::int32_t pointerX = 0; ")
        self.change(READER, "  std::int32_t pointerWasY = 0; ", "  std::int32_t pointerY = 0; ")
        self.assertEqual(self.problems(), [
            "layout for x86_64: promised, but gone or changed: int32_t LinuxInputReader.pointerX at 4",
            "layout for x86_64: promised, but gone or changed: int32_t LinuxInputReader.pointerY at 8",
            "layout for x86_64: new, so write it down (--write): int32_t LinuxInputReader.pointerY at 4",
            "layout for x86_64: new, so write it down (--write): int32_t LinuxInputReader.pointerX at 8"])

    def test_a_field_that_is_larger_breaks_it(self):
        self.change(READER, "std::uint8_t clicks;", "std::uint16_t clicks;")
        field = "LinuxInputReader::InputEvent::MouseData.clicks at 12"
        self.assertEqual(self.problems(), [f"layout for x86_64: promised, but gone or changed: uint8_t {field}",
                                           f"layout for x86_64: new, so write it down (--write): uint16_t {field}"])

    def test_another_value_of_a_constant_breaks_it(self):
        self.change(READER, "kButtonUp = 2", "kButtonUp = 3")
        name = "int32_t const LinuxInputReader::InputEvent::MouseData::kButtonUp"
        self.assertEqual(self.problems(), [f"interface: promised, but gone or changed: {name} = 2",
                                           f"interface: new, so write it down (--write): {name} = 3"])

    def test_another_parameter_breaks_it(self):
        self.change("input/input_loop.h", "void setBound(int events, int ms);", "void setBound(int events, long ms);")
        self.assertEqual(self.problems(), [
            "interface: promised, but gone or changed: void InputLoop::setBound(int, int)",
            "interface: new, so write it down (--write): void InputLoop::setBound(int, long int)"])

    BOUND = "void setBound(int events, int ms);"

    def test_a_function_that_is_private_breaks_it(self):
        self.change("input/input_loop.h", self.BOUND, f"private: {self.BOUND} public:")
        self.assertEqual(self.problems(), [
            "interface: promised, but gone or changed: void InputLoop::setBound(int, int)",
            "interface: new, so write it down (--write): private void InputLoop::setBound(int, int)"])

    def test_a_function_that_is_deleted_breaks_it(self):
        self.change("input/input_loop.h", self.BOUND, self.BOUND.replace(";", " = delete;"))
        self.assertEqual(self.problems(),
                         ["interface: promised, but gone or changed: void InputLoop::setBound(int, int)"])

    def test_a_private_function_can_become_public(self):
        function = "bool openPipe();"
        self.change("input/input_loop.h", function, f"public: {function} private:")
        self.assertEqual(self.problems(),
                         ["interface: new, so write it down (--write): bool InputLoop::openPipe()"])

    def test_what_is_new_is_to_be_written_down(self):
        self.change("logging/logging.h", "int GetMinLogLevel();", "int GetMinLogLevel();\nint GetMaxLogLevel();")
        self.assertEqual(self.problems(), ["interface: new, so write it down (--write): int logging::GetMaxLogLevel()"])


if __name__ == "__main__":
    unittest.main()
