"""Commands, topics of help, modes and actions of `velun model` are the same wherever they are
named, and the manual names each variable of the environment that velun reads."""

import re

from tree import expect_same, found, part, rooms, root, run_velun, text_of

# How the completions of each shell write a word that they offer.
_offers = {"completions/velun.bash": " {}", "completions/_velun": "'{}:",
           "completions/velun.fish": "-a {} "}


def _words(text):
    return set(re.findall(r"\b[a-z]+\b", text))


def _printed(build, pattern, *words, status=0):
    """The words in the matches of the pattern in velun's output."""
    text = run_velun(build, *words, status=status)
    return _words(" ".join(found(pattern, text, f"velun {' '.join(words)}")))


def _command_lines(section):
    """The command lines that a section of the manual shows, without macros and arguments."""
    text = part(text_of("man/velun.1.in"), rf"^\.Sh {section}$", r"^\.Sh ", "man/velun.1.in")
    begin = "(?:Op )?" if section == "SYNOPSIS" else "It "
    lines = found(rf"^\.{begin}Cm (.*)$", text, f"man/velun.1.in: {section}")
    return [re.sub(r"\b(?:Op|Cm|Ar \S+)", "", line) for line in lines]


def _words_behind(word, section):
    lines = (line.split(maxsplit=1) for line in _command_lines(section))
    return _words(" ".join(line[1] for line in lines if line[0] == word and len(line) > 1))


def _tried(*typed):
    """The words that the tests of the completions expect behind each typed line."""
    where = "tests/completions/check"
    tables = [found(rf"^{line} \|([a-z|]+)$", text_of(where), where)[0] for line in typed]
    return _words(" ".join(tables))


def _expect_everywhere(expected, places):
    """Fails with one line for each place that lacks a word or has one too many."""
    wrong = []
    for place, words in places.items():
        wrong += [f"{place} lacks {word}" for word in sorted(expected - words)]
        wrong += [f"{place} has {word}, but velun does not" for word in sorted(words - expected)]
    for file, offer in _offers.items():
        text = text_of(file)
        wrong += [f"{file} lacks {word}" for word in sorted(expected)
                  if offer.format(word) not in text]
    assert not wrong, "\n".join(wrong)


def the_commands_are_the_same_everywhere(build):
    def shown(section):
        # Either a choice of commands, or one command and what follows it.
        lines = _command_lines(section)
        return _words(" ".join(line if re.match(r"\w+ \|", line) else line.split()[0]
                               for line in lines))
    expected = _printed(build, r"^  velun ([a-z]+)", "help")
    _expect_everywhere(expected, {
        "man/velun.1.in: SYNOPSIS": shown("SYNOPSIS"),
        "man/velun.1.in: COMMANDS": shown("COMMANDS"),
        "tests/completions/check": _tried("velun")})


def the_topics_are_the_same_everywhere(build):
    expected = _printed(build, r"Topics: (.*)$", "help")
    manual = part(text_of("man/velun.1.in"), r"^Explain a topic:", ";", "man/velun.1.in")
    _expect_everywhere(expected, {
        "cli/help.cc: refusal": _printed(build, r"topics: (.*)$", "help", "nonsense", status=2),
        "man/velun.1.in: COMMANDS": _words(manual) - {"or"},
        "tests/completions/check": _tried("velun help")})
    for topic in expected:
        run_velun(build, "help", topic)


def the_modes_are_the_same_everywhere(build):
    expected = _printed(build, r"usage: velun mode (.*)$", "mode", "nonsense", status=2)
    _expect_everywhere(expected, {
        "cli/help.cc: overview": _printed(build, r"velun mode (\S+)", "help"),
        "cli/help.cc: modes": _printed(build, r"^([a-z]+)  ", "help", "modes"),
        "cli/help.cc: config": _printed(build, r"^  mode: ([a-z| ]+?)  ", "help", "config"),
        "cli/setup.cc": _printed(build, r"^Mode \((.*?)\)", "setup"),
        "man/velun.1.in: SYNOPSIS": _words_behind("mode", "SYNOPSIS"),
        "man/velun.1.in: COMMANDS": _words_behind("mode", "COMMANDS"),
        "tests/completions/check": _tried("velun mode")})


def the_actions_of_model_are_the_same_everywhere(build):
    usage = r"^usage: velun model \[(.*) <id>\]$"
    expected = _printed(build, usage, "model", "nonsense", status=2)
    named = _printed(build, r"^  velun model ([a-z]+)", "help")
    assert named <= expected, f"cli/help.cc: overview has {sorted(named - expected)}"
    _expect_everywhere(expected, {
        "man/velun.1.in: SYNOPSIS": _words_behind("model", "SYNOPSIS"),
        "man/velun.1.in: COMMANDS": _words_behind("model", "COMMANDS"),
        "tests/completions/check": _tried("velun model", "velun model fetch")})


def the_manual_names_the_variables_that_velun_reads(build):
    text = "".join(file.read_text(encoding="utf-8")
                   for room in rooms for file in (root / room).glob("*.cc"))
    # The search path is read by the system.
    read = {*found(r'getenv\("(\w+)"\)', text, "sources"), "PATH"}
    named = set(found(r"^\.It Ev (\w+)$", text_of("man/velun.1.in"), "man/velun.1.in: ENVIRONMENT"))
    assert named == read, f"man/velun.1.in: ENVIRONMENT differs in {sorted(named ^ read)}"


def the_readme_shows_the_default_servers(build):
    defaults = found(r'^set\((VELUN_[A-Z_]+_URL) "([^"]+)"', text_of("CMakeLists.txt"),
                     "CMakeLists.txt")
    shown = found(r"^\| `(VELUN_[A-Z_]+_URL)` \| `([^`]+)`", text_of("README.md"), "README.md")
    expect_same(map(" ".join, defaults), "CMakeLists.txt", map(" ".join, shown), "README.md")
