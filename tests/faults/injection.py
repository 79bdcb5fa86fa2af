"""The faults: every system call that velun makes fails, with each error that it may return."""

import re

# Each error, with the calls that fail with it.
ERRORS = {
    "ECONNREFUSED": "connect",
    "ENOENT": "access faccessat faccessat2 getcwd getdents64 newfstatat openat readlink",
    "EACCES": "access faccessat faccessat2 mkdir newfstatat openat readlink rename rmdir unlink",
    "EMFILE": "epoll_create1 eventfd2 openat pipe2 socket timerfd_create",
    "ENOMEM": "clone epoll_ctl mmap mprotect poll",
    "EBADF": "fcntl ioctl",
    "ECHILD": "wait4",
    "ECONNRESET": "recvfrom recvmsg",
    "EIO": "close ftruncate getdents64 ioctl newfstatat read write",
    "ENOBUFS": "getsockopt setsockopt",
    "ENOSPC": "epoll_ctl mkdir rename write",
    "ENOSYS": "faccessat2",
    "EPERM": "fchmod kill",
    "EPIPE": "sendmsg sendto",
    "EROFS": "unlink",
    "ESPIPE": "lseek",
    "ESRCH": "kill",
    "ETIMEDOUT": "connect",
    "EAGAIN": "clone recvfrom recvmsg sendmsg sendto",
    "EINTR": "clock_nanosleep close epoll_wait poll read recvfrom recvmsg sendmsg sendto wait4"
             " write",
}

# These calls cannot fail, or do not return.
CANNOT_FAIL = {"exit_group", "getpid", "getppid", "gettid", "tgkill"}


def own_calls(trace):
    """The calls of a trace after those of the C library's start. Each is a name and the position among
    the calls of that name, which strace takes as "when"."""
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
    """The faults of the call of this number, in strace's words: it fails once with each error, or it
    and all later calls fail. EINTR comes only once: velun repeats the call until it succeeds."""
    errors = [f"error={name}" for name, calls in ERRORS.items() if call in calls.split()]
    # The kernel returns the old end of the heap if it cannot be moved, and no error.
    faults = ["retval=0"] if call == "brk" else errors or ["error=EINVAL"]
    once = [f"{fault}:when={number}" for fault in faults]
    return once + [f"{fault}:when={number}+" for fault in faults if fault != "error=EINTR"]


def was_injected(trace):
    """Whether strace made a call of the trace fail."""
    return "(INJECTED)" in trace


def silenced_streams(trace):
    """The standard streams to which a write was made to fail."""
    calls = re.findall(r"^write\(([12]),.*\(INJECTED\)", trace, re.MULTILINE)
    return {int(stream) for stream in calls}
