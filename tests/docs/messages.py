"""The manual explains all that velun prints, and nothing that it does not print.

A message, for these rules, is one line of what a source puts together from literals, with "…" for
whatever is put in between; a literal of one bare word is a name and put in. In the manual, what
stands fast in a message is bold, and what differs from case to case is underlined."""

import functools
import re
import subprocess

from keys import field_names
from tree import part, rooms, root

# What the sources put together that is no message, each with what it is.
_no_messages = {
    "GET … HTTP/1.1": "a request to the daemon",
    "Host: 127.0.0.1:…": "a request to the daemon",
    "Authorization: Bearer …": "a request to the daemon, and the file that curl reads",
    "Velun 1.3": "the model's name",
    "MB": "a size",
    "GB": "a size",
}

# What is printed by the C++ runtime when it ends velun.
_of_the_runtime = ("terminate called after", "what():")

_token = re.compile(r"""
    R"\( (?: (?! \)" ) [\s\S] )* \)"  |  # holds a whole document, JSON or a topic of help
    //.* | ^\#.* | '(?:[^'\\]|\\.)*' |
    "(?P<literal> (?:[^"\\]|\\.)* )"
    """, re.VERBOSE | re.MULTILINE)

_escapes = {"n": "\n", "r": "", "t": " "}


def _unescaped(literal):
    return re.sub(r"\\(.)", lambda escape: _escapes.get(escape[1], escape[1]), literal)


def _sources():
    """The text of every source, without the marks that divide long numbers."""
    files = [file for room in rooms for file in sorted((root / room).glob("*.cc"))]
    return {file.relative_to(root): re.sub(r"(?<=\d)'(?=\d)", "", file.read_text(encoding="utf-8"))
            for file in files}


def _is_name(literal):
    return re.fullmatch(r"[\w./?-]+", literal)


@functools.cache
def _names():
    """What may stand fast in the manual where a source puts something in."""
    literals = [token["literal"] for source in _sources().values()
                for token in _token.finditer(source)]
    return sorted({literal for literal in literals if literal and _is_name(literal)})


def _texts(source):
    """The texts that the source puts together. "^" stands where one begins to be printed."""
    text, last = "", 0
    for token in _token.finditer(source):
        between = source[last:token.start()].replace("::", "")
        last = token.end()
        if re.search(r"[;{}?:,]", between):
            yield text
            text = ""
        if re.search(r"\bprint(_error)?\(\s*$", between):
            text = "^"
        elif re.search(r"\w", between):
            text += "…"
        literal = token["literal"]
        if literal is not None:
            text += "…" if _is_name(literal) else _unescaped(literal)
    yield text


def _plain(text):
    """With single blanks, and one "…" for several that have nothing between them."""
    return re.sub(r"…[… ]*…", "…", re.sub(r"\s+", " ", text))


def _messages():
    """The messages in the sources, with "^" and "$" where a line of output begins and ends."""
    result = {}
    for file, source in _sources().items():
        for text in _texts(source):
            for line in text.replace("\n", "$\n^").split("\n"):
                if re.search(r"[A-Za-z]", line) and re.search(r"[ $]", line):
                    result[_plain(line)] = file
    bare = {re.sub(r"^[\^… ]+|[ $]+$", "", line): line for line in result}
    for text in _no_messages:
        assert text in bare, f"no longer in the sources: {text}"
        del result[bare[text]]
    return result


def _characters(line):
    """The characters of a rendered line, with "…" for an underlined one and "¦" for one that is
    neither that nor bold. Blanks are blanks, and a colon behind a number is part of a message."""
    kind = "¦"
    for mark, character in re.findall(r"(?:(.)\x08)?(.)", line):
        if mark and mark != character:
            kind = "…"
        elif mark and character != "_":
            kind = "bold"
        elif not mark:  # an underlined "_" is printed like a bold one, and goes with its neighbours
            kind = "¦"
        yield character if kind == "bold" or character in " :" else kind


def _manual(build):
    """The lines of both sections of messages."""
    lines = []
    for page in (f"{build}/man/velun.1", f"{build}/man/velun.yaml.5"):
        run = subprocess.run(["mandoc", "-T", "utf8", "-O", "width=1000", page], timeout=30,
                             stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8",
                             check=True)
        head = "".join(f"{letter}\x08{letter}" for letter in "MESSAGES")
        section = part(run.stdout, rf"^{head}$", r"^\S", page)
        # What is indented less is a head of its own.
        lines += ["".join(_characters(line)) for line in section.splitlines()
                  if line.startswith("     ")]
    return [re.sub(r"¦[¦ :]*", "¦", _plain(line)).strip() for line in lines]


@functools.cache
def _pattern(message):
    text = message.strip("^$ ")
    text = text if message.startswith("^") else text.lstrip("… ")
    text = text if message.endswith("$") else text.rstrip("… ")
    begin = "(?:^|¦)" if message.startswith("^") else ""
    end = "(?:$|¦)" if message.endswith("$") else ""
    put_in = "|".join(map(re.escape, _names()))
    return re.compile(begin + re.escape(text).replace("…", f"(?:…|{put_in})") + end)


def _is_printed(line, messages):
    if any(_pattern(message).fullmatch(line) for message in messages):
        return True
    # Put together from several texts.
    pieces = {piece.strip("^$ ") for message in messages for piece in message.split("…")}
    for piece in sorted(pieces | set(field_names()), key=len, reverse=True):
        line = line.replace(piece, "…") if piece else line
    return not re.search(r"[A-Za-z]", line)


def the_manual_explains_every_message(build):
    manual = _manual(build)
    missing = [f"{file}: {message}" for message, file in _messages().items()
               if not any(_pattern(message).search(line) for line in manual)]
    assert not missing, "in no section MESSAGES:\n" + "\n".join(missing)


def every_message_in_the_manual_is_printed(build):
    messages = _messages()
    # Lines with nothing but a message in them.
    heads = [line for line in _manual(build) if "¦" not in line and re.search(r"[A-Za-z]", line)]
    assert heads, "no messages in the manual"
    unknown = [line for line in heads
               if not line.startswith(_of_the_runtime) and not _is_printed(line, messages)]
    assert not unknown, "in no source:\n" + "\n".join(unknown)
