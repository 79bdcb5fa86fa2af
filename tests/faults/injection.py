"""Which faults there are: every call that velun makes, and how each kind of call likely fails."""

import re

# A short name for each way in which strace can make a call fail.
FAULTS = {
    "access": ["EACCES", "ENOENT"],
    "clock_nanosleep": ["EINTR"],
    "clone": ["EAGAIN", "ENOMEM"],
    "close": ["EIO", "EINTR"],
    "connect": ["ECONNREFUSED", "ETIMEDOUT"],
    "faccessat": ["EACCES", "ENOENT"],
    "faccessat2": ["EACCES", "ENOENT", "ENOSYS"],
    "fchmod": ["EPERM"],
    "fcntl": ["EBADF"],
    "ftruncate": ["EIO"],
    "getcwd": ["ENOENT"],
    "getdents64": ["EIO", "ENOENT"],
    "ioctl": ["EBADF", "EIO"],
    "kill": ["ESRCH", "EPERM"],
    "lseek": ["ESPIPE"],
    "mkdir": ["EACCES", "ENOSPC"],
    "mmap": ["ENOMEM"],
    "mprotect": ["ENOMEM"],
    "munmap": ["EINVAL"],
    "newfstatat": ["EACCES", "ENOENT", "EIO"],
    "openat": ["ENOENT", "EACCES", "EMFILE"],
    "poll": ["ENOMEM", "EINTR"],
    "read": ["EIO", "EINTR"],
    "readlink": ["EACCES", "ENOENT"],
    "recvfrom": ["ECONNRESET", "EAGAIN", "EINTR"],
    "rename": ["EACCES", "ENOSPC"],
    "rmdir": ["EACCES"],
    "rt_sigaction": ["EINVAL"],
    "rt_sigprocmask": ["EINVAL"],
    "sendto": ["EPIPE", "EAGAIN", "EINTR"],
    "socket": ["EMFILE"],
    "unlink": ["EACCES", "EROFS"],
    "wait4": ["ECHILD", "EINTR"],
    "write": ["ENOSPC", "EIO", "EINTR"],
}

# These return to velun in one way only, or not at all.
CANNOT_FAIL = {"exit_group", "getpid", "getppid", "gettid", "tgkill"}

# What ends a run from outside.
SIGNALS = ["INT", "TERM", "HUP", "QUIT", "KILL"]


def own_calls(trace):
    """The calls of a trace from velun's first own on, behind the start of the C library: each as its
    name and how many calls of that name there have been, itself included, which is how strace finds
    it again."""
    counts = {}
    calls = []
    entered = False
    for line in trace.splitlines():
        match = re.match(r"(\w+)\(", line)
        if not match or match[1] == "execve":
            continue
        name = match[1]
        counts[name] = counts.get(name, 0) + 1
        entered = entered or line.startswith("fcntl(0, F_GETFD)")
        if entered and name not in CANNOT_FAIL:
            calls.append((name, counts[name]))
    return calls


def ways_to_fail(call, number):
    """What strace is told to do to the call of this number: fail once in every likely way, or from
    then on every time. An interruption comes alone: velun goes on, as often as it takes."""
    # The kernel returns the old end of the heap when it cannot be moved, and no error.
    faults = ["retval=0"] if call == "brk" else ["error=" + name for name in FAULTS.get(call, ["EINVAL"])]
    once = [f"{fault}:when={number}" for fault in faults]
    return once + [f"{fault}:when={number}+" for fault in faults if fault != "error=EINTR"]


def was_injected(trace):
    """Whether strace got to do what it was told, in a trace of that kind of call alone."""
    return "(INJECTED)" in trace


def descriptors_of_injected(trace):
    """The first arguments of the calls that were made to fail, so far as they are numbers."""
    calls = re.findall(r"^\w+\((\d+)[,)].*\(INJECTED\)", trace, re.MULTILINE)
    return {int(descriptor) for descriptor in calls}
