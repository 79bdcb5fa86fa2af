"""What the rules of this folder read: the files of the tree, and what velun prints."""

import difflib
import os
import pathlib
import re
import subprocess
import tempfile

root = pathlib.Path(__file__).resolve().parents[2]

# The folders of the product, each of which uses only those before it.
rooms = ("system", "config", "daemon", "models", "cli")


def text_of(name):
    return (root / name).read_text(encoding="utf-8")


def found(pattern, text, where):
    """All that the pattern finds in the text. Nothing at all is a failure: the rule would hold for
    whatever stands there."""
    matches = re.findall(pattern, text, re.MULTILINE)
    assert matches, f"{where}: nothing looks like {pattern}"
    return matches


def part(text, begin, end, where):
    """The text between two patterns; the end of the text stands in for the second."""
    match = re.search(rf"{begin}([\s\S]*?)(?:{end}|\Z)", text, re.MULTILINE)
    assert match, f"{where}: nothing begins like {begin}"
    return match[1]


def expect_same(expected, expected_name, actual, actual_name):
    """Fails with a diff when the two lists differ, the order of their items included."""
    expected, actual = list(expected), list(actual)
    if expected != actual:
        raise AssertionError("\n".join(difflib.unified_diff(
            expected, actual, expected_name, actual_name, n=99, lineterm="")))


def run_velun(build, *words, config="", status=0):
    """What velun prints, with this configuration, in a home of its own: its results, or its errors
    when it is to end with another status than 0."""
    with tempfile.TemporaryDirectory() as home:
        file = pathlib.Path(home, "velun.yaml")
        file.write_text(config, encoding="utf-8")
        run = subprocess.run([pathlib.Path(build, "velun").resolve(), *words], cwd=home, timeout=30,
                             env={"HOME": home, "PATH": os.defpath, "VELUN_CLI_CONFIG": file},
                             stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8",
                             check=False)
    assert run.returncode == status, f"velun {' '.join(words)}: {run.stdout}{run.stderr}"
    return run.stdout if status == 0 else run.stderr
