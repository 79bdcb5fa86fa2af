"""Each statement of SECURITY.md names a test that checks it."""

import re
import subprocess

from tree import found, text_of

_page = "SECURITY.md"
_name = r"`([A-Z][A-Za-z]*\.[a-z0-9_]+)`"


def each_statement_names_a_test(build):
    # A list item lasts until the next one, an empty line or a heading.
    items = found(r"^- .*(?:\n(?!- |#|\n).*)*", text_of(_page), _page)
    bare = [item for item in items if not re.search(_name, item)]
    assert not bare, f"{_page}: no test is named for:\n" + "\n".join(bare)


def names_tests_that_exist(build):
    listing = subprocess.run(["ctest", "--test-dir", build, "-N"], timeout=60, check=True,
                             stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8").stdout
    # GoogleTest puts the suite's instance before a name and the parameter behind it.
    existing = found(r"^ *Test +#\d+: (?:\w+/)?([\w.]+)", listing, "ctest -N")
    missing = set(found(_name, text_of(_page), _page)) - set(existing)
    assert not missing, f"{_page}: no such test:\n" + "\n".join(sorted(missing))
