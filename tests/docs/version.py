"""The version is written once, in CMakeLists.txt. The manual and the changelog show it."""

import re
import subprocess

from tree import found, rooms, root, text_of


def _version():
    where = "CMakeLists.txt"
    return found(r"^project\(velun VERSION ([0-9.]+)", text_of(where), where)[0]


def _names_the_version(text):
    return re.search(rf"(?<![\w.]){re.escape(_version())}(?![\w.])", text)


def the_version_stands_once(build):
    files = [file for file in root.glob("*") if file.is_file()]
    for folder in (*rooms, "cmake", "completions", "docs", "man", "packaging", "tools"):
        files += [file for file in (root / folder).rglob("*") if file.is_file()]
    named = [str(file.relative_to(root)) for file in files
             if file.name not in ("CMakeLists.txt", "CHANGELOG.md")
             and _names_the_version(file.read_text(encoding="utf-8", errors="replace"))]
    assert not named, "the version is repeated in:\n" + "\n".join(named)


def the_rendered_manual_shows_the_version(build):
    for page in ("velun.1", "velun.yaml.5"):
        run = subprocess.run(["mandoc", "-T", "utf8", f"{build}/man/{page}"], timeout=30,
                             stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8",
                             check=True)
        footer = run.stdout.splitlines()[-1]
        assert _names_the_version(footer), f"{page} ends with: {footer}"


def the_changelog_begins_with_the_version(build):
    heads = found(r"^## \[(.*?)\] - (?:Unreleased|\d{4}-\d\d-\d\d)$", text_of("CHANGELOG.md"),
                  "CHANGELOG.md")
    assert heads[0] == _version(), f"the changelog begins with {heads[0]}"
