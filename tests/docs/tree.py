"""Functions for the rules in this folder: they read files of the tree and run velun."""

import difflib
import os
import pathlib
import re
import subprocess
import tempfile

root = pathlib.Path(__file__).resolve().parents[2]

# The folders of the product. Each uses only those before it.
rooms = ("system", "config", "daemon", "models", "cli")


def text_of(name):
    return (root / name).read_text(encoding="utf-8")


def found(pattern, text, where):
    """All matches of the pattern in the text. Fails without a match, because a rule that
    compares nothing would always pass."""
    matches = re.findall(pattern, text, re.MULTILINE)
    assert matches, f"{where}: nothing matches {pattern}"
    return matches


def part(text, begin, end, where):
    """The text between two patterns, or from the first to the end of the text."""
    match = re.search(rf"{begin}([\s\S]*?)(?:{end}|\Z)", text, re.MULTILINE)
    assert match, f"{where}: nothing matches {begin}"
    return match[1]


def expect_same(expected, expected_name, actual, actual_name):
    """Fails with a diff if the two lists differ, also in their order."""
    expected, actual = list(expected), list(actual)
    if expected != actual:
        raise AssertionError("\n".join(difflib.unified_diff(
            expected, actual, expected_name, actual_name, n=99, lineterm="")))


def run_velun(build, *words, config="", status=0):
    """Runs velun with this configuration in an empty home. Returns standard output, or standard
    error if another status than 0 is expected."""
    with tempfile.TemporaryDirectory() as home:
        file = pathlib.Path(home, "velun.yaml")
        file.write_text(config, encoding="utf-8")
        run = subprocess.run([pathlib.Path(build, "velun").resolve(), *words], cwd=home, timeout=30,
                             env={"HOME": home, "PATH": os.defpath, "VELUN_CLI_CONFIG": file},
                             stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8",
                             check=False)
    assert run.returncode == status, f"velun {' '.join(words)}: {run.stdout}{run.stderr}"
    return run.stdout if status == 0 else run.stderr
