"""A process that velun must leave alone: it writes down every signal that it gets.

bystander.py FILE: the file's first line says that signals are being watched for.
"""

import signal
import sys

with open(sys.argv[1], "w", encoding="utf-8") as record:
    signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())
    print("watching", file=record, flush=True)
    while True:
        info = signal.sigwaitinfo(signal.valid_signals())
        print(f"signal {info.si_signo} from process {info.si_pid}", file=record, flush=True)
