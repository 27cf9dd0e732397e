# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""A private root for the sweep: its state as a value, and single runs of the program in it."""

import ctypes
import os
import re
import signal
import stat
import subprocess

TIME_LIMIT = 30  # Seconds; a run takes a tenth of one.

# Programs, libraries and devices: the same in every state.
FIXED = {"usr", "bin", "sbin", "lib", "lib32", "lib64", "libx32", "dev", "proc", "opt",
         ".halyard-private-root"}

# Calls that touch neither files nor processes, or that cannot fail.
NEITHER = {"mmap", "munmap", "mprotect", "mremap", "madvise", "brk", "futex", "getrandom", "rseq",
           "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "sigaltstack", "arch_prctl", "umask",
           "set_tid_address", "set_robust_list", "getpid", "gettid", "geteuid", "getuid", "getgid",
           "getegid", "exit_group", "exit", "execve", "restart_syscall", "clock_gettime"}


def listing(root):
    """Everything in the root that can change: path to (kind, mode, content or target)."""
    return listing_of(root, "", FIXED)


def listing_of(root, prefix, left_out=()):
    """The same of any folder, all paths with the prefix."""
    found = {}

    def walk(folder, inside):
        for entry in os.scandir(folder):
            if inside == prefix and entry.name in left_out:
                continue
            path = inside + "/" + entry.name
            status = entry.stat(follow_symlinks=False)
            mode = stat.S_IMODE(status.st_mode)
            if stat.S_ISDIR(status.st_mode):
                found[path] = ("folder", mode, None)
                walk(entry.path, path)
            elif stat.S_ISREG(status.st_mode):
                with open(entry.path, "rb") as file:
                    found[path] = ("file", mode, file.read())
            elif stat.S_ISLNK(status.st_mode):
                found[path] = ("link", 0, os.readlink(entry.path))
            else:
                found[path] = ("other", mode, None)

    walk(root, prefix)
    return found


def reset(root, wanted):
    """Makes the root's changeable part equal to a listing."""
    now = listing(root)
    for path in sorted(now, reverse=True):
        kept = path in wanted and wanted[path][0] == now[path][0]
        if now[path][0] == "folder" and not kept:
            os.rmdir(root + path)
        elif now[path][0] != "folder" and now[path] != wanted.get(path):
            os.unlink(root + path)
    for path in sorted(wanted):
        kind, mode, content = wanted[path]
        if now.get(path) == wanted[path]:
            continue
        if kind == "link":
            os.symlink(content, root + path)
            continue
        if kind == "file":
            with open(root + path, "wb") as file:
                file.write(content)
        elif now.get(path, ("",))[0] != "folder":
            os.mkdir(root + path)
        os.chmod(root + path, mode)


def adopt_orphans():
    """What a killed run leaves running becomes this process's child, so that it can be waited for."""
    pr_set_child_subreaper = 36
    ctypes.CDLL(None).prctl(pr_set_child_subreaper, 1, 0, 0, 0)


def wait_for_orphans():
    while True:
        try:
            os.waitpid(-1, 0)
        except ChildProcessError:
            return


def end_tree(pid):
    """Kills a process that this sweep started, and its descendants."""
    try:
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            for child in file.read().split():
                end_tree(int(child))
        os.kill(pid, signal.SIGKILL)
    except (FileNotFoundError, ProcessLookupError):
        pass


class Outcome:
    """Of one run: status (negative for a signal), output, trace, and whether it had to be ended."""

    def __init__(self, status, out, err, trace, hung):
        self.status, self.out, self.err = status, out, err
        self.trace, self.hung = trace, hung


def run(root, words, traced=None, inject=None, program="/usr/sbin/Halyard"):
    """Runs a program in the root; `traced` and `inject` are options of strace."""
    trace_path = root + ".trace"
    command = ["chroot", root, program, *words]
    if traced:
        options = ["-e", "trace=" + traced]
        if inject:
            options += ["-e", "inject=" + inject]
        command = ["strace", "-qq", "-o", trace_path, *options, *command]
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}
    hung = False
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, env=environment) as process:
        try:
            out, err = process.communicate(timeout=TIME_LIMIT)
        except subprocess.TimeoutExpired:
            hung = True
            end_tree(process.pid)
            out, err = process.communicate()
    wait_for_orphans()
    trace = ""
    if traced:
        with open(trace_path, encoding="latin-1") as file:
            trace = file.read()
    return Outcome(process.returncode, out, err, trace, hung)


def points_of(trace, program="/usr/sbin/Halyard"):
    """The program's own file and process calls in a full trace: (name, how many of it so far).

    The counts begin with the trace, as those of strace do; the calls before the program and those
    of its loader, which ends by asking for the stack's limit, are counted and left out.
    """
    counts, points, stage = {}, [], "before"
    for line in trace.splitlines():
        match = re.match(r"(\w+)\(", line)
        if not match:
            continue
        name = match.group(1)
        counts[name] = counts.get(name, 0) + 1
        if stage == "program" and name not in NEITHER:
            points.append((name, counts[name]))
        elif stage == "before" and name == "execve" and f'"{program}"' in line.split(",")[0]:
            stage = "loader"
        elif stage == "loader" and line.startswith("prlimit64(0, RLIMIT_STACK"):
            stage = "program"
    return points
