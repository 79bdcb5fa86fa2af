"""The commands that are run, each in the surroundings in which it has most to do."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Command:
    """One command line and what velun finds when it runs."""

    name: str  # as the matrix shows it
    words: tuple
    lines: str = ""  # of the config file, behind its ports; "none" for no file at all
    answers: bool = False  # a daemon answers that velun has not started
    recorded: str = ""  # whose pid is on record: "daemon" (it answers), "bystander" or "dead"
    input: str = ""
    bundle: str = ""  # what is in the models directory: "whole" or "half" of a bundle
    refused: bool = False  # neither the mirror nor the hub delivers anything
    bound: int = 15  # seconds within which it ends, whatever fails


START_BOUND = 60  # fifty probes of half a second each, the pauses between them, and a stop before

COMMANDS = [
    Command("help", ("help",)),
    Command("help nonsense", ("help", "nonsense")),
    Command("config", ("config",)),
    Command("config, faulty file", ("config",), lines="mode: loud\ncolour: red\n"),
    Command("setup", ("setup",), input="protect\nnone\n"),
    Command("setup, no file", ("setup",), lines="none", input="watch\nhttp://127.0.0.1:1\n"),
    Command("status", ("status",)),
    Command("status, up", ("status",), answers=True),
    Command("stats", ("stats",)),
    Command("stats, up", ("stats",), answers=True),
    Command("log, up", ("log",), answers=True),
    Command("start", ("start",), bound=START_BOUND),
    Command("start, up", ("start",), answers=True, bound=START_BOUND),
    Command("stop", ("stop",), recorded="daemon"),
    Command("stop, recycled pid", ("stop",), recorded="bystander"),
    Command("stop, foreign daemon", ("stop",), recorded="dead", answers=True),
    Command("stop, nothing there", ("stop",), recorded="dead"),
    Command("restart", ("restart",), recorded="daemon", bound=START_BOUND),
    Command("restart, recycled pid", ("restart",), recorded="bystander", bound=START_BOUND),
    Command("mode watch", ("mode", "watch"), lines="mode: off\n", bound=START_BOUND),
    Command("mode protect, up", ("mode", "protect"), recorded="daemon", bound=START_BOUND),
    Command("mode off", ("mode", "off"), recorded="bystander"),
    Command("mode off, up", ("mode", "off"), recorded="daemon"),
    Command("model list", ("model", "list"), bundle="whole"),
    Command("model use", ("model", "use", "velun-pii-m-v1.3"), bundle="whole", answers=True),
    Command("model fetch", ("model", "fetch")),
    Command("model fetch, half there", ("model", "fetch"), bundle="half"),
    Command("model fetch, refused", ("model", "fetch"), refused=True),
]

# A few of every folder, for the tests that run with every change.
SAMPLE = ["help nonsense", "config", "status, up", "stop, recycled pid", "model list"]
