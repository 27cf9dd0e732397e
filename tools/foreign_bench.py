# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""The engine on file systems of its own, and each snapshot of it compared with what it should hold."""

import json
import os
import re
import signal
import subprocess
import time

import sweep_kit
import tamper
import tree_facts

SNAPWHEEL = "/usr/sbin/snapwheel"
ENGINE = ["--destination", "/repository", "--computer", "files1"]
MEGABYTES = {"source": 2048, "repository": 4096, "restored": 2048}
TIME_LIMIT = 900
SHOWN = 12
INSTANT = ".snapwheel-source"


def must(*words):
    done = subprocess.run(words, check=False, capture_output=True)
    if done.returncode != 0:
        raise SystemExit(f"foreign-trees: {' '.join(words)}: {done.stderr.decode()}")


def others():
    """All processes of this namespace but this one, which is the first."""
    return [int(name) for name in os.listdir("/proc") if name.isdigit() and name != "1"]


def states_of(process):
    """The state of each of its threads; none when it is gone."""
    try:
        tasks = os.listdir(f"/proc/{process}/task")
        texts = [open(f"/proc/{process}/task/{task}/stat", encoding="latin-1").read()
                 for task in tasks]
    except OSError:
        return []
    return [text[text.rindex(")") + 2] for text in texts]


def signal_others(number):
    try:
        os.kill(-1, number)  # Of the namespace, but for this one.
    except ProcessLookupError:
        pass


def reap():
    try:
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
    except ChildProcessError:
        pass


def have_come_to(states, seconds):
    """Whether each thread of the others is in one of these states by then."""
    end = time.monotonic() + seconds
    while not all(state in states for process in others() for state in states_of(process)):
        if time.monotonic() > end:
            return False
        time.sleep(0.005)
    return True


def stop_writers():
    for _ in range(30):
        signal_others(signal.SIGSTOP)
        if have_come_to("TtZX", 5):
            return
        let_write()  # One waits for a child that is stopped before it runs its program.
    raise SystemExit("foreign-trees: the writers do not stop")


def let_write():
    signal_others(signal.SIGCONT)


def end_writers():
    """What they have written by now stays."""
    signal_others(signal.SIGKILL)
    if not have_come_to("ZX", 120):
        raise SystemExit("foreign-trees: the writers do not end")
    reap()


def mounts_below(folder):
    found = []
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as table:
        for line in table:
            path = re.sub(r"\\(\d{3})", lambda match: chr(int(match[1], 8)), line.split()[4])
            if path.startswith(folder + "/"):
                found.append(path)
    return found


class Bench:
    """Three new file systems of a kind, in images in `folder`, for one generator. The source is a
    subvolume on btrfs."""

    def __init__(self, folder, kind, program, chance, tampers):
        self.folder, self.kind, self.chance, self.tampers = folder, kind, chance, tampers
        self.root = f"{folder}/root"
        self.snapshots = self.restored = self.items = self.torn = self.still = 0
        self.findings = []
        if not os.path.isdir(self.root):
            sweep_kit.make_root(folder, "root", program)
            os.makedirs(self.root + "/etc/halyard-host")
            with open(self.root + "/etc/halyard-host/snapwheel.exclude", "w", encoding="ascii") as file:
                file.write("# Nothing.\n")
            os.mkdir(self.root + "/run/lock")
            must("mount", "-t", "proc", "none", self.root + "/proc")
        self.source = self.root + "/source"
        for name in MEGABYTES:
            self.make_volume(name)
        self.written = self.source + "/written"
        os.mkdir(self.written)

    def make_volume(self, name):
        image, place = f"{self.folder}/{name}.img", f"{self.root}/{name}"
        os.makedirs(place, exist_ok=True)
        with open(image, "wb") as made:
            made.truncate(MEGABYTES[name] << 20)
        must("mkfs." + self.kind, "-q", image)
        if name == "source" and self.kind == "btrfs":
            self.top = self.folder + "/top"
            os.makedirs(self.top, exist_ok=True)
            must("mount", "-o", "loop,discard", image, self.top)
            must("btrfs", "-q", "subvolume", "create", self.top + "/live")
            must("mount", "--bind", self.top + "/live", place)
        else:
            must("mount", "-o", "loop,discard", image, place)
        os.unlink(image)  # Its last mount keeps it.

    def leave_mounts(self):
        """What a test has mounted and left in the source goes."""
        for path in reversed(mounts_below(self.source)):
            must("umount", "-l", path)

    def unmount(self, name):
        place = f"{self.root}/{name}"
        self.leave_mounts()
        must("umount", place)
        if name == "source" and self.kind == "btrfs":
            must("umount", self.top)

    def close(self):
        end_writers()
        for name in MEGABYTES:
            self.unmount(name)

    def found(self, where, lines):
        for line in lines[:SHOWN]:
            print(f"foreign-trees: {self.kind}: {where}: {line}", flush=True)
        if len(lines) > SHOWN:
            print(f"foreign-trees: {self.kind}: {where}: and {len(lines) - SHOWN} more", flush=True)
        self.findings += lines

    def start(self, *words):
        return subprocess.Popen(["chroot", self.root, SNAPWHEEL, *words, *ENGINE],
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})

    def finish(self, process):
        """(status, standard output, standard error)."""
        try:
            out, err = process.communicate(timeout=TIME_LIMIT)
        except subprocess.TimeoutExpired:
            process.kill()
            out, err = process.communicate()
            err += b"it takes too long"
        return process.returncode, out, err.decode(errors="replace")

    def run(self, *words):
        return self.finish(self.start(*words))

    def facts(self, place, with_flags=False):
        return tree_facts.facts_of(place, (INSTANT,), with_flags)

    def compare(self, where, expected, place, with_flags=False):
        """Whether the tree at `place` is the expected one."""
        changed = tamper.change(place, self.chance) if self.tampers else None
        lines = tree_facts.differences(expected, self.facts(place, with_flags))
        self.items += len(expected)
        if not self.tampers:
            self.found(where, lines)
        elif changed is None or not any(line.startswith(changed + ": ") for line in lines):
            self.found(where, [f"the change of {changed} was not found"])

    def take(self, process):
        """The manifest of the snapshot that the process takes; none when it failed."""
        status, out, err = self.finish(process)
        if status not in (0, 4):
            self.found("snapshot", [f"ends with {status}: {err.strip()}"])
            return None
        manifest = json.loads(out)
        unsaid = not manifest["torn"] and not manifest["missing"]
        if (status == 0) != unsaid:
            self.found("snapshot", [f"ends with {status} where {manifest['tornCount']} are torn and "
                                    f"{manifest['missingCount']} missing: {err.strip()}"])
        self.snapshots += 1
        self.torn += manifest["tornCount"]
        return manifest

    def place_of(self, manifest):
        return f"{self.root}{manifest['path']}/System"

    def snapshot_of(self, where, expected, process=None):
        """Of a tree that stands still: it holds all of it."""
        manifest = self.take(process or self.start("snapshot", "--source", "/source", "--json"))
        if manifest is None:
            return
        unsound = [f"is named as torn or missing: {item}"
                   for item in manifest["torn"] + manifest["missing"]]
        self.found(where, unsound)
        self.still += 1
        self.compare(where, expected, self.place_of(manifest))

    def verify(self):
        if self.tampers:
            return
        status, out, err = self.run("check", "--verify", "--json")
        if status != 0:
            self.found("check --verify", [f"ends with {status}: {out.decode()[:2000]} {err.strip()}"])

    def restore(self, where):
        """The last snapshot into an empty folder, which is then what the source is."""
        self.unmount("restored")
        self.make_volume("restored")
        expected = self.facts(self.source, with_flags=True)
        status, _, err = self.run("restore", "latest", "--to", "/restored/tree")
        # It names by itself what is gone of a snapshot.
        if status != 0 and not (self.tampers and status == 4):
            self.found(where, [f"restore ends with {status}: {err.strip()[:2000]}"])
        if status in (0, 4):
            self.restored += 1
            self.compare(where, expected, self.root + "/restored/tree", with_flags=True)

    def prune(self):
        status, _, err = self.run("prune", "--keep-last", "4", "--days-to-retain", "0")
        # It keeps all while the newest lacks something.
        if status not in (0, 1, 4):
            self.found("prune", [f"ends with {status}: {err.strip()}"])

    def last(self, where):
        """The tree stands still from here on."""
        self.snapshot_of(where, self.facts(self.source))
        self.verify()
        self.restore(where)
        self.prune()
