"""The commands to run, and the situations in which each runs."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Command:
    """One command line and the situation in which velun runs it."""

    name: str
    words: tuple
    lines: str = ""  # of the config file, after its ports; "none": there is no file
    answers: bool = False  # a daemon that velun has not started answers
    recorded: str = ""  # the process whose pid is on record: "daemon" (it answers), "bystander" or "dead"
    input: str = ""
    bundle: str = ""  # "whole"; or "half", with a token file, as a killed fetch leaves them
    refused: bool = False  # neither the mirror nor the hub delivers anything
    starts: bool = False  # may leave a daemon running
    signals: tuple = ()  # also killed by these, at each call

    @property
    def bound(self):
        """The seconds within which it ends, whichever call fails: a start probes fifty times for
        half a second each, with pauses in between, and may stop a daemon first."""
        return 60 if self.starts else 15


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
    Command("start", ("start",), starts=True, signals=("KILL",)),
    Command("start, up", ("start",), answers=True, starts=True),
    Command("stop", ("stop",), recorded="daemon"),
    Command("stop, recycled pid", ("stop",), recorded="bystander"),
    Command("stop, foreign daemon", ("stop",), recorded="dead", answers=True),
    Command("stop, nothing there", ("stop",), recorded="dead"),
    Command("restart", ("restart",), recorded="daemon", starts=True),
    Command("restart, recycled pid", ("restart",), recorded="bystander", starts=True),
    Command("mode watch", ("mode", "watch"), lines="mode: off\n", starts=True),
    Command("mode protect, up", ("mode", "protect"), recorded="daemon", starts=True),
    Command("mode off", ("mode", "off"), recorded="bystander"),
    Command("mode off, up", ("mode", "off"), recorded="daemon"),
    Command("model list", ("model", "list"), bundle="whole"),
    Command("model use", ("model", "use", "velun-pii-m-v1.3"), bundle="whole", answers=True),
    Command("model fetch", ("model", "fetch"), signals=("INT", "TERM", "HUP", "QUIT", "KILL")),
    Command("model fetch, half there", ("model", "fetch"), bundle="half"),
    Command("model fetch, refused", ("model", "fetch"), refused=True),
]

# One or two from each folder, for every run of the tests.
SAMPLE = ["help nonsense", "config", "status, up", "stop, recycled pid", "model list"]
