"""The section MESSAGES of the manual has the messages that a person must act on, in the words that
velun prints, and no others."""

import re
import subprocess

from tree import expect_same, rooms, root, run_velun

# In the order of velun(1), with "…" for the parts that vary.
_messages = """\
no configuration at … — run `velun setup` first
… has problems:
wrote …
terminate called after throwing an instance of …
what():  filesystem error: cannot create directories: … […]
what():  filesystem error: cannot rename: …
what():  [json.exception.…] …
what():  std::bad_alloc
Detection: path to a model bundle, a self-hosted engine URL, or `none`
Protect without a model falls back to the pattern floor — much
weaker. `velun help model` explains how to get one.
already running on control port …
mode is off — nothing to start (see `velun mode`)
model_dir does not exist: …
`velun help model` explains how to get a model.
could not start …: exec failed
velund exited during startup — run it by hand to see why:
started (pid …) but the control port did not answer in 5 s
fork failed
a daemon answers on port …
but this CLI did not start it — not touching it
the recorded pid … is alive but no daemon answers on port …
— not killing it; if it is a stuck daemon, `kill …`
still running after 5 s — `kill -9 …` if you mean it
mode: …
not running (configured mode: …)
the daemon answers /healthz but refused /v1/status — token mismatch?
unparseable /v1/status
no requests yet (the transcript is RAM-only and empties on restart)
could not read …
could not read …
… (incomplete)
… is incomplete (needs a graph, tokenizer.json, labels.json)
* … (external path)
no models — `velun model fetch` downloads one (~1.2 GB)
… — already here
… on … is licence-gated. Either
1. wait for the Quorvane mirror (…), or
2. sign in at …, accept the licence, create a READ token and run
VELUN_HF_TOKEN=hf_... velun model fetch
download failed: …
tokenizer.json did not parse — delete … and fetch again
no bundle at … — `velun model list`
""".splitlines()

# Printed by the C++ runtime when it ends velun.
_of_the_runtime = ("terminate called after", "what():")

# Together, these two files have every problem.
_faulty_files = ("""\
 mode: watch
no colon
: no key
names: maybe
names: true
intercept_apps: [one
colour: red
anthropic_prot: 1
mode: loud
model_dir: [one]
endpoint_url: ftp://elsewhere
openai_port: 0
""", """\
intercept_apps: one
model_dir: /elsewhere
endpoint_url: http://elsewhere
""")


def _page(build, name):
    """The lines of a page in a terminal of 80 columns, and a dictionary from line numbers to the heads
    of the entries of its section MESSAGES, with "…" for underlined words."""
    run = subprocess.run(["mandoc", "-T", "utf8", "-O", "width=78", f"{build}/man/{name}"],
                         timeout=30, stdin=subprocess.DEVNULL, capture_output=True,
                         encoding="utf-8", check=True)
    lines = [re.sub(r".\x08", "", line) for line in run.stdout.splitlines()]
    begin = lines.index("MESSAGES") + 1
    end = next(i for i in range(begin, len(lines)) if re.match(r"\S", lines[i]))
    heads = {}
    for i, line in list(enumerate(run.stdout.splitlines()))[begin:end]:
        # Heads are bold or underlined; other paragraphs begin with plain words.
        if re.match(r" {5}\S\x08", line):
            heads[i] = re.sub(r".\x08", "", re.sub(r"(?:_\x08[^_])+", "…", line)).strip()
    return lines, heads


def _fixed_words(message):
    """The parts of a message that never vary, the longest first."""
    texts = (text.strip() for text in message.split("…"))
    return sorted((text for text in texts if text), key=len, reverse=True)


def the_manual_has_the_messages_of_the_list(build):
    heads = _page(build, "velun.1")[1]
    expect_same(_messages, "tests/docs/messages.py", heads.values(), "man/velun.1.in: MESSAGES")


def the_sources_have_the_messages_of_the_list(build):
    text = "".join(file.read_text(encoding="utf-8")
                   for room in rooms for file in sorted((root / room).glob("*.cc")))
    joined = re.sub(r'"\s*"', "", text)  # a text over several lines of source
    missing = [f"{words}: {message}" for message in _messages
               if not message.startswith(_of_the_runtime)
               for words in _fixed_words(message) if words not in joined]
    assert not missing, "tests/docs/messages.py: in no source:\n" + "\n".join(missing)


def the_manual_has_the_problems_that_velun_prints_for_a_file(build):
    heads = _page(build, "velun.yaml.5")[1].values()
    printed = "".join(run_velun(build, "config", config=file, status=1) for file in _faulty_files)
    problems = [line for line in printed.splitlines() if line.startswith("  ")]
    patterns = {head: re.escape(head).replace("…", ".+") for head in heads}
    missing = [line for line in problems
               if not any(re.search(pattern, line) for pattern in patterns.values())]
    assert not missing, "man/velun.yaml.5.in: not in MESSAGES:\n" + "\n".join(missing)
    stale = [head for head, pattern in patterns.items() if not re.search(pattern, printed)]
    assert not stale, "man/velun.yaml.5.in: velun does not print:\n" + "\n".join(stale)


def a_search_for_a_message_first_finds_its_entry(build):
    """A search starts at the top of the page and ignores case."""
    lost = []
    for name in ("velun.1", "velun.yaml.5"):
        lines, heads = _page(build, name)
        for place, head in heads.items():
            words = _fixed_words(head)[0].lower()
            first = next((i for i, line in enumerate(lines) if words in line.lower()), place)
            # Two messages may begin alike.
            if first != place and not heads.get(first, "").lower().startswith(words):
                lost.append(f"{name}: {words}: {lines[first].strip()}")
    assert not lost, "a search finds another place first:\n" + "\n".join(lost)
