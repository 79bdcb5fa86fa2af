"""What must hold after every run, whatever call failed in it."""

import re
import signal

import injection
import place

# What velun says on standard error, and the status that goes with it.
FAILURES = [
    r"no configuration at .* — run `velun setup` first", r".* has problems:",
    r"model_dir does not exist: .*", r"fork failed", r"velund exited during startup — .*",
    r"started \(pid \d+\) but the control port did not answer in 5 s",
    r"a daemon answers on port \d+ but this CLI did not start it — not touching it",
    r"the recorded pid \d+ is alive but no daemon answers on port \d+ — not killing it; .*",
    r"still running after 5 s — .*", r"unparseable /v1/status", r"could not read /v1/.*",
    r"the daemon answers /healthz but refused /v1/status — token mismatch\?",
    r"no bundle at .*", r".* is incomplete \(needs a graph, tokenizer.json, labels.json\)",
    r"download failed: .*", r"tokenizer.json did not parse — .*",
]
USAGES = [r"usage: velun .*", r"no help topic `.*", r"unknown command `.*"]

# What the last line on standard output is when the status is 0; reports end as they did when nothing
# failed.
SUCCESSES = [
    r"not running( \(configured mode: \w+\))?", r"stopped", r"dashboard: http://127.0.0.1:\d+/",
    r"already running on control port \d+", r"mode is off — .*", r"wrote .*",
    r"restart to load it: velun restart", r"done\. activate it with: .*", r"next: `velun start`, .*",
    r"no models — .*", r"[ *] \S.*",
]

# What a save writes when nothing keeps it from writing all.
RENDERING = re.compile(r"# Velun CLI configuration\. .*\nmode: (off|watch|protect)\n(\w+: .*\n)*"
                       r"names: (true|false)\n")

# The ways in which velun may end through the termination path: directories that cannot be created,
# a download that cannot be renamed, no memory.
TERMINATION = re.compile(
    r"terminate called after throwing an instance of '(std::bad_alloc'"
    r"|std::filesystem::__cxx11::filesystem_error'\n"
    r"  what\(\):  filesystem error: cannot (create director|rename))")


def says(texts, lines):
    return any(re.fullmatch(text, line) for text in texts for line in lines)


def status_of_text(run, usual):
    """The status that a script which reads velun's words would expect; none when they tell of no
    end at all."""
    errors = run.err.splitlines()
    if says(FAILURES, errors):
        return 1
    if says(USAGES, errors):
        return 2
    last = run.out.splitlines()[-1:]
    if last and (run.generic(last[0]) == usual.last_line or says(SUCCESSES, last)):
        return 0
    return None


def check_status(run, usual, silenced):
    """Whether the way it ended agrees with what it said, so far as that could be written."""
    if run.status < 0:
        if run.status != -signal.SIGABRT:
            return [f"ended by signal {-run.status}"]
        if not TERMINATION.search(run.err) and 2 not in silenced:
            return ["aborted, and not for an exception"]
        return []
    expected = status_of_text(run, usual)
    if expected is None and not silenced:
        return [f"status {run.status}, and the text tells of no end"]
    if expected is not None and expected != run.status and not silenced:
        return [f"status {run.status} where the text says {expected}"]
    return []


def check_truth(run):
    """Whether what the last words say about the daemon is so."""
    running = re.search(r"^running \(pid (\d+),", run.out, re.MULTILINE)
    if running and not place.exists(int(running[1])):
        return ["the daemon that is said to run does not"]
    if "stopped\n" in run.out and not run.daemon_gone:
        return ["the daemon that is said to be stopped is not"]
    return []


def files_below(home):
    return [path for path in home.rglob("*") if path.is_file() and path.parent != home]


def check_tokens(run, control_token):
    """Whether a token is anywhere where it should not be."""
    found = []
    for path in files_below(run.home):
        text = path.read_text(errors="replace")
        if place.HUB_TOKEN in text:
            found.append(f"the hub's token is left in {path.relative_to(run.home)}")
        if path.name != "control.token" and control_token in text:
            found.append(f"the control token is in {path.relative_to(run.home)}")
    for name, text in [("output", run.out), ("standard error", run.err)]:
        if place.HUB_TOKEN in text or control_token in text:
            found.append(f"a token is in the {name}")
    return found


def check_models(run):
    """Whether every file that has its final name is whole."""
    return [f"{name} is truncated" for name in place.MODEL_FILES
            if (run.bundle / name).exists() and (run.bundle / name).read_text() != place.BODY]


def check_leftovers(run):
    """Whether a run that could clean up has done so."""
    return [f"{path.relative_to(run.home)} is left behind" for path in files_below(run.home)
            if path.suffix == ".part" or path.name == ".hf-token.header"]


def check_config(run, command, usual):
    """Whether the config file is the old one or as much of the new one as could be written; setup
    writes another when it could not read the file or an answer, but still a whole one."""
    text = run.config_text()
    known = text == run.before or run.concrete(usual.config).startswith(text)
    if known or command.name.startswith("setup") and RENDERING.fullmatch(text):
        return []
    return ["the config file is neither the old nor the new one"]


def check_record(run):
    """Whether the pid on record is a whole one."""
    record = run.state_dir / "velun-cli.pid"
    whole = not record.exists() or re.fullmatch(r"(\d+\n)?", record.read_text())
    return [] if whole else ["the pid file holds half a record"]


def violations(run, command, usual, call, control_token):
    """All that is wrong with a run in which one call failed."""
    if run.hung:
        return ["hangs"]
    # A stream to which writing failed has no text to judge by.
    silenced = injection.descriptors_of_injected(run.trace) & {1, 2} if call == "write" else set()
    found = check_status(run, usual, silenced) + check_tokens(run, control_token)
    found += check_config(run, command, usual) + check_record(run)
    # By agreement a process that may not be signalled counts as gone.
    if call != "kill":
        found += check_truth(run)
    # By agreement a wait that fails counts as the end of the download, though curl goes on.
    if call != "wait4":
        found += check_models(run)
        if call != "unlink" and run.status >= 0:
            found += check_leftovers(run)
    return found
