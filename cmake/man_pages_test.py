#!/usr/bin/python3 -B
"""What becomes of a help text in a manual page."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

from man_pages import Page, commands_of, escaped, literal

HELP = """Play a session. Then end.
Usage: program play [OPTIONS] session

Positionals:
  session SESSION REQUIRED    The directory to play

Options:
  -h,--help                   Print this help message and exit
  -o,--output FILE REQUIRED   Where to write
                              what it says
  --quick Excludes: --slow --late
                              Without waiting
  --times N Needs: --quick    So often
  --late NODE|none            Which one
  --place-to-play FILE REQUIRED Where

Environment:
  LEVEL                       How loud

Files:
  /dev/play-*                 What plays

It says "ready"
  'as this'
and goes on.

Example: play it twice
  program play -o x~ a; program play b

More of the same.

Is done at once. Exit status: 0 done,
1 failed.

See also: quarlo-input draw-all, docs/play.md,
player(8)
"""

PAGE = r""".TH QUARLO\-INPUT\-PLAY 1 2026-02-03 "quarlo-input 1.2" "User Commands"
.SH NAME
quarlo\-input\-play \- play a session. Then end
.SH SYNOPSIS
\fBprogram play\fR [\fIOPTIONS\fR] \fIsession\fR
.SH DESCRIPTION
Play a session. Then end.
.PP
It says "ready"
.PP
.RS 4
.EX
\&\(aqas this\(aq
.EE
.RE
.PP
and goes on.
.SH ARGUMENTS
.TP
\fIsession\fR
The directory to play
.SH OPTIONS
.TP
\fB\-h\fR, \fB\-\-help\fR
Print this help message and exit
.TP
\fB\-o\fR, \fB\-\-output\fR \fIFILE\fR (required)
Where to write
what it says
.TP
\fB\-\-quick\fR
Without waiting
(excludes \-\-slow \-\-late)
.TP
\fB\-\-times\fR \fIN\fR
So often
(needs \-\-quick)
.TP
\fB\-\-late\fR \fINODE\fR|\fBnone\fR
Which one
.TP
\fB\-\-place\-to\-play\fR \fIFILE\fR (required)
Where
.SH EXIT STATUS
0 done,
1 failed.
.SH ENVIRONMENT
.TP
\fBLEVEL\fR
How loud
.SH FILES
.TP
\fI/dev/play\-*\fR
What plays
.SH EXAMPLES
Play it twice
.PP
.RS 4
.EX
program play \-o x\(ti a; program play b
.EE
.RE
.PP
More of the same.
.PP
Is done at once.
.SH SEE ALSO
.BR quarlo\-input (1),
.BR quarlo\-input\-draw\-all (1),
.IR /usr/share/doc/docs/play.md ,
.BR player (8)
"""

PROGRAM = """Do things.
Usage: program [OPTIONS] [SUBCOMMAND]

Options:
  -h,--help                   Print this help message and exit

Subcommands:
  play                        Play it.
  draw-all                    Draw it,
                              and more

Exit status: 0 done, 1 failed.
See also: docs/play.md
"""


class PageTest(unittest.TestCase):
    maxDiff = None

    def test_of_a_command(self):
        self.assertEqual(Page(HELP, "play", "/usr/share/doc").roff("1.2", "2026-02-03"), PAGE)

    def test_of_the_program(self):
        page = Page(PROGRAM, "", "/usr/share/doc").roff("1.2", "2026-02-03")
        self.assertIn(".TH QUARLO\\-INPUT 1 ", page)
        self.assertIn(".SH SYNOPSIS\n\\fBprogram\\fR [\\fIOPTIONS\\fR] [\\fISUBCOMMAND\\fR]\n", page)
        self.assertIn(".TP\n\\fBquarlo\\-input\\-play\\fR(1)\nPlay it.\n", page)
        self.assertTrue(page.endswith(".SH EXIT STATUS\n0 done, 1 failed.\n.SH SEE ALSO\n.IR /usr/share/doc/docs/play.md\n"))

    def test_an_option_of_which_nothing_is_said(self):
        with self.assertRaisesRegex(ValueError, "nothing is said of --slow"):
            Page("Play.\n\nOptions:\n  --slow\n", "play", "/usr/share/doc")

    def test_has_no_markup_but_its_own(self):
        self.assertEqual(escaped("a-b\\c"), r"a\-b\ec")
        self.assertEqual([escaped(".TP"), escaped("'a'")], [r"\&.TP", r"\&'a'"])
        self.assertEqual(literal("it's `a` ^ ~"), r"it\(aqs \(gaa\(ga \(ha \(ti")


class CommandsTest(unittest.TestCase):
    def test_are_those_that_the_program_names(self):
        self.assertEqual(commands_of(PROGRAM), ["play", "draw-all"])
        self.assertEqual(commands_of(HELP), [])


class ProgramTest(unittest.TestCase):
    def make(self, folder, program):
        script = pathlib.Path(__file__).with_name("man_pages.py")
        command = [sys.executable, "-B", script, "--version", "1.2", "--documents", "/usr/share/doc", "--folder", folder, "--", *program]
        return subprocess.run(command, check=True, capture_output=True, text=True, env={"SOURCE_DATE_EPOCH": "0"}).stdout

    def test_gives_a_page_for_each_command_and_leaves_no_other(self):
        with tempfile.TemporaryDirectory() as folder:
            program = pathlib.Path(folder) / "program"
            program.write_text(f"#!/bin/sh\ncase $1 in play | draw-all) cat <<'E' ;; *) cat <<'E' ;; esac\n{HELP}E\n{PROGRAM}E\n")
            program.chmod(0o755)
            pages = pathlib.Path(folder) / "man"
            pages.mkdir()
            (pages / "quarlo-input-old.1").touch()
            self.assertEqual(self.make(pages, [program]), "")
            self.assertEqual(sorted(page.name for page in pages.iterdir()),
                             ["quarlo-input-draw-all.1", "quarlo-input-play.1", "quarlo-input.1"])
            self.assertEqual((pages / "quarlo-input-play.1").read_text(), PAGE.replace("2026-02-03", "1970-01-01"))

    def test_that_does_not_run_gives_none(self):
        with tempfile.TemporaryDirectory() as folder:
            for program in ("/nowhere/program", "/bin/false"):
                self.assertRegex(self.make(folder, [program]), "^No manual pages: ")
            self.assertEqual(list(pathlib.Path(folder).iterdir()), [])


if __name__ == "__main__":
    unittest.main()
