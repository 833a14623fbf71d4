"""What the checks of this directory ask about programs and libraries."""

import subprocess


def run(*command, **options):
    """The standard output of a command that has to end well."""
    done = subprocess.run(command, text=True, capture_output=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout


def headers_of(program):
    """What a program says about how it is to be loaded."""
    return run("readelf", "--wide", "--file-header", "--section-headers", "--program-headers", "--dynamic", program)


def expect_guarded_memory(test, headers, stack="RW"):
    """No memory of the program can be both written and executed, and its tables stay as the linker left them."""
    test.assertRegex(headers, r"GNU_RELRO")
    test.assertRegex(headers, rf"GNU_STACK .* {stack} ")
    test.assertNotRegex(headers, r"LOAD .* RWE ")
