"""Where commands run: ports, a home for every run, a daemon and a bystander that must stay alive."""

import ctypes
import dataclasses
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import sys
import time

import injection

HUB_TOKEN = "hf_tokenThatMustNotStayBehind"
BODY = '{"half": "whole"}'
BUNDLE = "velun-pii-m-v1.3"
MODEL_FILES = ["tokenizer.json", "calibration.json", "model.fp32.onnx"]

# It delivers in two pieces, so that there is a moment at which the file is not whole. The mirror
# lacks one file, which makes velun ask the hub with the token. The run of the number $MUTE stays
# between the pieces until it is killed.
CURL = """#!/bin/sh
while [ $# -gt 1 ]; do
  [ "$1" = -o ] && file=$2
  shift
done
[ -n "$REFUSED" ] && exit 22
printf '{"half": ' >"$file"
echo >>"$HOME/curls"
runs=0
while read -r _; do runs=$((runs + 1)); done <"$HOME/curls"
[ "$runs" = "$MUTE" ] && read -r _ <"$HOME/nobody-writes"
case $1 in http:*calibration.json) exit 22 ;; esac
printf '"whole"}' >>"$file"
"""

PR_SET_PDEATHSIG = 1
PR_SET_CHILD_SUBREAPER = 36
libc = ctypes.CDLL(None)


@dataclasses.dataclass
class Run:
    """How a run ended and what it left."""

    home: pathlib.Path
    status: int  # negative: the signal that ended it; none when it hangs
    out: str
    err: str
    trace: str
    hung: bool
    daemon_gone: bool  # the recorded one
    before: str  # the config file
    ports: list

    def generic(self, text):
        """A text with names for all that differs from place to place and from run to run."""
        for index, own in enumerate([self.home, *self.ports]):
            text = text.replace(str(own), f"<{index}>")
        return text

    def concrete(self, text):
        """The text that was made generic in another run, as it would be in this one."""
        for index, own in enumerate([self.home, *self.ports]):
            text = text.replace(f"<{index}>", str(own))
        return text

    def config_text(self):
        """The config file as it is now; the empty text without one."""
        return self.config_file.read_text() if self.config_file.exists() else ""

    @property
    def state_dir(self):
        return self.home / ".local/share/velun"

    @property
    def bundle(self):
        return self.state_dir / "models" / BUNDLE

    @property
    def config_file(self):
        return self.home / ".config/velun/velun.yaml"


def end_with_parent():
    """Runs in a child: nothing outlives a runner that was killed."""
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def reserved_port():
    """A socket that keeps a port for the daemons of one place, which share it as long as nobody
    listens on this one."""
    keeper = socket.socket()
    keeper.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    keeper.bind(("127.0.0.1", 0))
    return keeper


def eventually(condition, seconds=10):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.002)
    return True


def listens(port):
    with socket.socket() as client:
        return client.connect_ex(("127.0.0.1", port)) == 0


def exists(pid):
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return False
    return True


class Place:
    """One of the places that are worked in side by side, each in a process of its own."""

    def __init__(self, build, root):
        self.build = build
        self.root = pathlib.Path(root) / f"place-{os.getpid()}"
        self.count = 0
        self.root.mkdir()
        end_with_parent()
        # Daemons that velun leaves behind come down to this process, and a signal to velun's whole
        # group would reach the bystander.
        libc.prctl(PR_SET_CHILD_SUBREAPER, 1)
        os.setpgid(0, 0)
        # Whoever started this may have had some of them ignored.
        for name in injection.SIGNALS:
            if name != "KILL":
                signal.signal(signal.Signals["SIG" + name], signal.SIG_DFL)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 26, 1 << 26))
        self.keepers = [reserved_port() for _ in range(6)]
        ports = [keeper.getsockname()[1] for keeper in self.keepers]
        self.ports, self.answering_ports = ports[:3], ports[3:]
        (self.root / "bin").mkdir()
        (self.root / "bin/curl").write_text(CURL)
        (self.root / "bin/curl").chmod(0o755)
        self.bystander = self.daemon = None
        self.bring_up()

    def bring_up(self):
        """Starts those who must be left alone, unless they are there and were."""
        self.signals = self.root / "signals"
        if not self.daemon or self.daemon.poll() is not None:
            self.daemon = self.start_daemon(self.answering_ports, self.root / "answering")
        if self.bystander:
            self.bystander.kill()
            self.bystander.wait()
            self.signals.unlink()
        self.start_bystander()

    def start_bystander(self):
        script = pathlib.Path(__file__).with_name("bystander.py")
        self.bystander = subprocess.Popen([sys.executable, script, self.signals],
                                          preexec_fn=end_with_parent)
        watching = lambda: self.signals.exists() and self.signals.read_text() == "watching\n"
        if not eventually(watching):
            raise RuntimeError("the bystander does not come up")

    def start_daemon(self, ports, state_dir):
        flags = ["--anthropic-port", "--openai-port", "--control-port"]
        words = [word for pair in zip(flags, map(str, ports)) for word in pair]
        words += ["--state-dir", state_dir, "--quiet", "--detector", "local", "--names"]
        daemon = subprocess.Popen([self.build / "standin/velun-standin", *words],
                                  stdin=subprocess.DEVNULL, preexec_fn=end_with_parent)
        if not eventually(lambda: listens(ports[2])):
            raise RuntimeError("the stand-in daemon does not come up")
        return daemon

    def disturbed(self):
        """What has befallen those who must be left alone; the empty text for nothing."""
        complaints = self.signals.read_text().replace("watching\n", "")
        if self.bystander.poll() is not None:
            complaints += "the bystander was killed\n"
        if self.daemon.poll() is not None:
            complaints += "the daemon that velun had not started was ended\n"
        return complaints

    def prepare(self, command):
        """Makes a home for a run; returns it and the daemon that was started for it, if any."""
        self.count += 1
        home = self.root / str(self.count)
        state_dir = home / ".local/share/velun"
        config_file = home / ".config/velun/velun.yaml"
        state_dir.mkdir(parents=True)
        os.mkfifo(home / "nobody-writes")
        ports = self.answering_ports if command.answers else self.ports
        if command.lines != "none":
            config_file.parent.mkdir(parents=True)
            names = ["anthropic_port", "openai_port", "control_port"]
            lines = [f"{name}: {port}\n" for name, port in zip(names, ports)]
            config_file.write_text("".join(lines) + command.lines)
        if command.answers:
            shutil.copy(self.root / "answering/control.token", state_dir)
        if command.bundle:
            bundle = state_dir / "models" / BUNDLE
            bundle.mkdir(parents=True)
            whole = command.bundle == "whole"
            for name in MODEL_FILES + ["labels.json"] if whole else MODEL_FILES[:1]:
                (bundle / name).write_text(BODY)
        daemon = self.start_daemon(ports, state_dir) if command.recorded == "daemon" else None
        self.record(command, state_dir, daemon)
        return home, daemon

    def record(self, command, state_dir, daemon):
        pid = {"daemon": daemon and daemon.pid, "bystander": self.bystander.pid,
               "dead": 2 ** 22 + 1}  # larger than any
        if command.recorded:
            (state_dir / "velun-cli.pid").write_text(f"{pid[command.recorded]}\n")

    def environment(self, command, home):
        variables = {"HOME": str(home), "PATH": f"{self.root}/bin", "VELUN_HF_TOKEN": HUB_TOKEN,
                     "VELUND": str(self.build / "standin/velun-standin"),
                     "VELUN_MODEL_MIRROR": f"http://127.0.0.1:{self.ports[2]}"}
        return variables | ({"REFUSED": "yes"} if command.refused else {})

    def run(self, command, strace_words, home=None, mute=""):
        """Runs a command under strace, in a home of its own unless one is given; `mute` is the number
        of the curl that does not end."""
        daemon = None
        if home is None:
            home, daemon = self.prepare(command)
        config_file = home / ".config/velun/velun.yaml"
        before = config_file.read_text() if config_file.exists() else ""
        (home / "in").write_text(command.input)
        words = [shutil.which("strace"), "-qq", "-o", home / "trace", *strace_words,
                 self.build / "velun", *command.words]
        with open(home / "in") as stdin, open(home / "out", "w") as out, \
                open(home / "err", "w") as err:
            process = subprocess.Popen(words, env=self.environment(command, home) | {"MUTE": mute},
                                       cwd=home, stdin=stdin, stdout=out, stderr=err)
        hung = not self.wait(process, daemon, command.bound)
        text = lambda name: (home / name).read_text(errors="replace")
        gone = daemon is not None and "stopped\n" in text("out") and self.is_gone(daemon)
        return Run(home, process.returncode, text("out"), text("err"), text("trace"), hung, gone,
                   before, self.answering_ports if command.answers else self.ports)

    @staticmethod
    def wait(process, daemon, seconds):
        """Waits for a run, and reaps the daemon as soon as it ends: as a zombie it would look alive
        to velun. Returns whether the run ended in time."""
        def over():
            if daemon:
                daemon.poll()
            return process.poll() is not None
        return eventually(over, seconds)

    @staticmethod
    def is_gone(daemon):
        """Whether a daemon has ended, or does so in a moment."""
        return eventually(lambda: daemon.poll() is not None, 0.5)

    def children(self):
        """The children of this process, adopted ones too, without those that stay for all runs."""
        text = pathlib.Path(f"/proc/self/task/{os.getpid()}/children").read_text()
        return set(map(int, text.split())) - {self.bystander.pid, self.daemon.pid}

    def nothing_runs(self):
        """Whether all those children have ended, reaped or not."""
        return all(os.waitid(os.P_PID, pid, os.WEXITED | os.WNOHANG | os.WNOWAIT)
                   for pid in self.children())

    def clean_up(self, home):
        """Ends what a run has left running and removes its home."""
        for _ in range(100):
            for pid in self.children():
                os.kill(pid, signal.SIGKILL)
                os.waitpid(pid, 0)
            if not self.children():
                break
        shutil.rmtree(home)
