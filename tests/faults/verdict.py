"""The rules that hold after every run, whichever call failed in it."""

import json
import re
import signal

import place

# The lines on standard error of a run that ends with status 1, and of one that ends with status 2.
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

# The last line on standard output if the status is 0. Reports are not listed: theirs is the usual one.
SUCCESSES = [
    r"not running( \(configured mode: \w+\))?", r"stopped", r"dashboard: http://127.0.0.1:\d+/",
    r"already running on control port \d+", r"mode is off — .*", r"wrote .*",
    r"restart to load it: velun restart", r"done\. activate it with: .*", r"next: `velun start`, .*",
    r"no models — .*", r"[ *] \S.*",
]

# A whole config file as a save writes it.
RENDERING = re.compile(r"# Velun CLI configuration\. .*\nmode: (off|watch|protect)\n(\w+: .*\n)*"
                       r"names: (true|false)\n")

# The exceptions that may end velun: a directory that cannot be created, a download that cannot be
# renamed, no memory.
TERMINATION = re.compile(
    r"terminate called after throwing an instance of '(std::bad_alloc'"
    r"|std::filesystem::__cxx11::filesystem_error'\n"
    r"  what\(\):  filesystem error: cannot (create director|rename))")


def says(texts, lines):
    return any(re.fullmatch(text, line) for text in texts for line in lines)


def last_line(run):
    return (run.out.splitlines() or [""])[-1]


def status_of_text(run, usual):
    """The status that the output stands for; None if it stands for no status."""
    errors = run.err.splitlines()
    if says(FAILURES, errors):
        return 1
    if says(USAGES, errors):
        return 2
    last = last_line(run)
    return 0 if run.generic(last) == usual.last_line or says(SUCCESSES, [last]) else None


def check_status(run, usual, silenced):
    """The status agrees with the text; a text that cannot be written does not change the status."""
    if run.status == -signal.SIGABRT:
        if TERMINATION.search(run.err) or 2 in silenced:
            return []
        return ["aborted without one of the agreed exceptions"]
    expected = usual.status if silenced else status_of_text(run, usual)
    return [] if run.status == expected else [f"status {run.status} instead of {expected}"]


def check_children(run, command, call):
    """A daemon runs, or has ended, if velun says so; every process that runs is on record."""
    found = []
    announced = re.search(r"^(?:running|started) \(pid (\d+)[,)]", run.out + run.err, re.MULTILINE)
    # An earlier daemon may answer in the place of the new one, which could not get the port.
    if announced and int(announced[1]) not in run.running and not command.answers:
        found.append("velun says that the daemon runs, but it does not")
    # A record that cannot be written goes unreported.
    if call not in ("openat", "write"):
        if announced and run.record != announced[1] + "\n":
            found.append("velun says that the daemon runs, but it is not on record")
        if any(run.record != f"{pid}\n" for pid in run.running):
            found.append("a process runs that is not on record")
    # A process that may not be signalled counts as gone.
    if call != "kill" and "stopped\n" in run.out and not run.daemon_gone:
        found.append("velun says that it stopped the daemon, but it still runs")
    return found


def check_record(run, call):
    """The pid file is whole. `stop` removes it with the daemon and keeps it after a refusal."""
    if not re.fullmatch(r"(\d+\n)?", run.record):
        return ["the pid file holds half a record"]
    ended = last_line(run) in ("stopped", "not running") and not run.running
    if ended and run.record and call != "unlink":
        return ["a pid file is left, but no daemon runs"]
    refused = re.search("not touching it|not killing it|still running", run.err)
    if refused and run.record != run.record_before:
        return ["a refusal has changed the pid file"]
    return []


def files_below(home):
    return [path for path in home.rglob("*") if path.is_file() and path.parent != home]


def check_tokens(run, control_token):
    """No token is in a file, in the output or among curl's words, and the mirror gets none."""
    texts = {path.relative_to(run.home): path.read_text(errors="replace")
             for path in files_below(run.home)}
    texts |= {"standard output": run.out, "standard error": run.err}
    found = [f"the hub's token is in {name}" for name, text in texts.items()
             if place.HUB_TOKEN in text]
    found += [f"the control token is in {name}" for name, text in texts.items()
              if control_token in text and getattr(name, "name", "") != "control.token"]
    if re.search(r"-H .* http://", run.curls):
        found.append("the mirror is sent the hub's token")
    return found


def check_models(run, call):
    """A file has its final name only when it is whole, and all are there when velun says so."""
    bundle, names = run.bundle, place.MODEL_FILES
    found = [f"{name} is truncated" for name in names
             if (bundle / name).exists() and (bundle / name).read_text() != place.BODY]
    if "done. activate it with" in run.out:
        found += [f"{name} is missing" for name in names if not (bundle / name).exists()]
        for name in () if call in ("openat", "write") else ("labels.json", "manifest.json"):
            try:
                json.loads((bundle / name).read_text())
            except (OSError, ValueError):
                found.append(f"{name} is not there or not whole")
    return found


def check_leftovers(run):
    """Neither a part of a download nor the token's file is left behind."""
    return [f"{path.relative_to(run.home)} is left behind" for path in files_below(run.home)
            if path.suffix == ".part" or path.name == ".hf-token.header"]


def check_config(run, command, usual, call):
    """The config file is the old one or the new one, and empty only if it could not be written."""
    config = run.config
    if config == run.config_before or run.generic(config) == usual.config:
        return []
    if config == "" and call == "write":
        return []
    # Without the old file or an answer, setup writes other values.
    if command.name.startswith("setup") and RENDERING.fullmatch(config):
        return []
    return ["the config file is neither the old nor the new one"]


def violations(run, command, usual, control_token, call="", silenced=()):
    """All that is wrong with a run in which this kind of call failed. `silenced` are the standard
    streams to which it could not write."""
    if run.hung:
        return ["hangs"]
    if run.status < 0 and run.status != -signal.SIGABRT:
        return [f"ended by signal {-run.status}"]
    found = check_status(run, usual, silenced) + check_tokens(run, control_token)
    found += check_config(run, command, usual, call) + check_record(run, call)
    # A wait that fails counts as the end of the download, though curl goes on.
    if call != "wait4" or command.starts:
        found += check_children(run, command, call) + check_models(run, call)
        # Without a configuration a fetch does not begin.
        if call != "unlink" and run.status >= 0 and "no configuration" not in run.err:
            found += check_leftovers(run)
    return found


def violations_when_killed(run, command, usual, call):
    """All that is wrong after a signal from outside, sent at a call of this kind."""
    found = ["hangs"] if run.hung else check_models(run, call) + check_record(run, "")
    found += check_config(run, command, usual, call)
    header = run.state_dir / ".hf-token.header"
    if header.exists() and header.stat().st_mode & 0o77:
        found.append("others may read the token")
    if not command.starts and run.running:
        found.append("curl goes on")
    # velun writes the pid file before its first pause.
    if call == "clock_nanosleep" and {run.record} != {f"{pid}\n" for pid in run.running}:
        found.append("the daemon that was started is not on record")
    return found
