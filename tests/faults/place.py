"""Where commands run: ports, a home for each run, and a daemon and a bystander that velun must
leave alone."""

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

HUB_TOKEN = "hf_tokenThatMustNotStayBehind"
BODY = '{"half": "whole"}'
BUNDLE = "velun-pii-m-v1.3"
MODEL_FILES = ["tokenizer.json", "calibration.json", "model.fp32.onnx"]
PORTS = ["anthropic_port", "openai_port", "control_port"]

# This curl writes each file in two pieces, so a file is incomplete for a moment. The mirror lacks
# one file, so velun asks the hub with the token. Run number $MUTE writes one piece and waits until it
# is killed.
CURL = """#!/bin/sh
echo "$*" >>"$HOME/curls/log"
while [ $# -gt 1 ]; do
  [ "$1" = -o ] && file=$2
  shift
done
printf '{"half": ' >"$file"
[ -n "$REFUSED" ] && exit 22
runs=0
while read -r _; do runs=$((runs + 1)); done <"$HOME/curls/log"
[ "$runs" = "$MUTE" ] && read -r _ <"$HOME/nobody-writes"
case $1 in http:*calibration.json) exit 22 ;; esac
printf '"whole"}' >>"$file"
"""

PR_SET_PDEATHSIG = 1
PR_SET_CHILD_SUBREAPER = 36
libc = ctypes.CDLL(None)


@dataclasses.dataclass
class Run:
    """One run: what was there before, how it ended and what it left."""

    home: pathlib.Path
    ports: list
    hung: bool = False
    status: int = 0  # negative: the signal that ended it
    running: set = ()  # the pids of children of velun that still run
    daemon_gone: bool = False  # whether the recorded daemon has ended

    def __post_init__(self):
        self.state_dir = self.home / ".local/share/velun"
        self.bundle = self.state_dir / "models" / BUNDLE
        self.read()
        self.config_before, self.record_before = self.config, self.record

    def read(self):
        """Reads the files of the run; a missing file reads as the empty text."""
        self.out, self.err, self.trace, self.curls, self.config, self.record = (
            file.read_text(errors="replace") if (file := self.home / name).exists() else ""
            for name in ("out", "err", "trace", "curls/log", ".config/velun/velun.yaml",
                         ".local/share/velun/velun-cli.pid"))

    def generic(self, text):
        """Replaces the home and the ports, which differ from run to run."""
        for index, own in enumerate([self.home, *self.ports]):
            text = text.replace(str(own), f"<{index}>")
        return text


def end_with_parent():
    """Runs in a child. The child then also ends if its parent is killed."""
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def reserved_port():
    """A bound socket that never listens: it keeps its port for the daemons of one place."""
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


class Place:
    """The home directories, ports and processes of the runs of one worker process."""

    def __init__(self, build, root):
        self.build = build
        self.root = pathlib.Path(root) / f"place-{os.getpid()}"
        self.count = 0
        self.bystander = self.daemon = None
        self.signals = self.root / "signals"
        (self.root / "bin").mkdir(parents=True)
        (self.root / "bin/curl").write_text(CURL)
        (self.root / "bin/curl").chmod(0o755)
        end_with_parent()
        # This process adopts the daemons that velun leaves running. Its process group is its own, so
        # a signal to velun's whole group reaches the bystander and no process outside.
        libc.prctl(PR_SET_CHILD_SUBREAPER, 1)
        os.setpgid(0, 0)
        # The caller may ignore some of these signals, and children inherit that.
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            signal.signal(number, signal.SIG_DFL)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 26, 1 << 26))
        self.keepers = [reserved_port() for _ in 2 * PORTS]
        ports = [keeper.getsockname()[1] for keeper in self.keepers]
        self.ports, self.answering_ports = ports[:len(PORTS)], ports[len(PORTS):]
        self.bring_up()
        self.control_token = (self.root / "answering/control.token").read_text().strip()

    def bring_up(self):
        """Starts the daemon if there is none, and a new bystander."""
        if not self.daemon or self.daemon.poll() is not None:
            self.daemon = self.start_daemon(self.answering_ports, self.root / "answering")
        if self.bystander:
            self.bystander.kill()
            self.bystander.wait()
            self.signals.unlink()
        script = pathlib.Path(__file__).with_name("bystander.py")
        self.bystander = subprocess.Popen([sys.executable, script, self.signals],
                                          preexec_fn=end_with_parent)
        if not eventually(lambda: self.signals.exists() and self.signals.read_text()):
            raise RuntimeError("the bystander does not start")

    def start_daemon(self, ports, state_dir):
        words = []
        for name, port in zip(PORTS, ports):
            words += ["--" + name.replace("_", "-"), str(port)]
        words += ["--state-dir", state_dir, "--quiet", "--detector", "local", "--names"]
        daemon = subprocess.Popen([self.build / "standin/velun-standin", *words],
                                  stdin=subprocess.DEVNULL, preexec_fn=end_with_parent)
        # The token is written once the ports are taken.
        token = state_dir / "control.token"
        if not eventually(lambda: token.exists() and token.read_text().endswith("\n")):
            raise RuntimeError("the stand-in daemon does not start")
        return daemon

    def disturbed(self):
        """A line for each thing that happened to the bystander and the daemon; mostly none."""
        lines = self.signals.read_text().splitlines()[1:]
        if self.bystander.poll() is not None:
            lines.append("the bystander was killed")
        if self.daemon.poll() is not None:
            lines.append("the daemon that velun had not started was ended")
        return lines

    def prepare(self, command):
        """Makes a home for a run; returns it and the daemon that was started for it, if any."""
        self.count += 1
        home = self.root / str(self.count)
        state_dir = home / ".local/share/velun"
        state_dir.mkdir(parents=True)
        (home / "curls").mkdir()
        (home / "in").write_text(command.input)
        os.mkfifo(home / "nobody-writes")
        ports = self.answering_ports if command.answers else self.ports
        if command.lines != "none":
            config_file = home / ".config/velun/velun.yaml"
            config_file.parent.mkdir(parents=True)
            lines = [f"{name}: {port}\n" for name, port in zip(PORTS, ports)]
            config_file.write_text("".join(lines) + command.lines)
        if command.answers:
            shutil.copy(self.root / "answering/control.token", state_dir)
        bundle = state_dir / "models" / BUNDLE
        there = {"whole": MODEL_FILES + ["labels.json"], "half": MODEL_FILES[:2], "": []}
        for name in there[command.bundle]:
            bundle.mkdir(parents=True, exist_ok=True)
            (bundle / name).write_text(BODY)
        if command.bundle == "half":
            (state_dir / ".hf-token.header").write_text("of a run that was killed\n")
        daemon = self.start_daemon(ports, state_dir) if command.recorded == "daemon" else None
        pid = {"daemon": daemon and daemon.pid, "bystander": self.bystander.pid,
               "dead": 2 ** 22 + 1}  # larger than any pid
        if command.recorded:
            (state_dir / "velun-cli.pid").write_text(f"{pid[command.recorded]}\n")
        return home, daemon

    def run(self, command, strace_words, home=None, mute=""):
        """Runs a command under strace, in a new home unless one is given; `mute` is the number of
        the curl that does not end."""
        daemon = None
        if home is None:
            home, daemon = self.prepare(command)
        run = Run(home, self.answering_ports if command.answers else self.ports)
        environment = {"HOME": str(home), "PATH": f"{self.root}/bin", "VELUN_HF_TOKEN": HUB_TOKEN,
                       "VELUND": str(self.build / "standin/velun-standin"), "MUTE": mute,
                       "REFUSED": "yes" if command.refused else "",
                       "VELUN_MODEL_MIRROR": f"http://127.0.0.1:{self.ports[2]}"}
        words = [shutil.which("strace"), "-qq", "-o", home / "trace", *strace_words,
                 self.build / "velun", *command.words]
        with open(home / "in") as stdin, open(home / "out", "w") as out, \
                open(home / "err", "w") as err:
            process = subprocess.Popen(words, env=environment, cwd=home, stdin=stdin, stdout=out,
                                       stderr=err)

        def ended():
            # A daemon that ends is reaped at once: as a zombie it would look alive to velun.
            if daemon:
                daemon.poll()
            return process.poll() is not None

        run.hung = not eventually(ended, command.bound)
        run.status = process.returncode
        run.read()
        # Does not poll again: an end of the daemon after that of velun does not count.
        run.daemon_gone = bool(daemon) and daemon.returncode is not None
        if not command.starts:
            eventually(lambda: not self.running(daemon), 1)
        run.running = self.running(daemon)
        return run

    def children(self):
        """The children of this process, adopted ones too, except those that stay for all runs."""
        text = pathlib.Path(f"/proc/self/task/{os.getpid()}/children").read_text()
        return set(map(int, text.split())) - {self.bystander.pid, self.daemon.pid}

    def running(self, daemon):
        """Those children that have not ended, without the daemon that was started for the run."""
        return {pid for pid in self.children() - {daemon and daemon.pid}
                if not os.waitid(os.P_PID, pid, os.WEXITED | os.WNOHANG | os.WNOWAIT)}

    def clean_up(self, home):
        """Ends what a run has left running and removes its home."""
        for _ in range(100):
            for pid in self.children():
                os.kill(pid, signal.SIGKILL)
                os.waitpid(pid, 0)
            if not self.children():
                break
        shutil.rmtree(home)
