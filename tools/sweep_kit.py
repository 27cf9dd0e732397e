# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""The engine's commands that are swept, on a small repository, and what helmsman's have in common."""

import json
import os
import re
import shutil
import subprocess

import sweep_cases
import sweep_host
from sweep_cases import file, folder, part, place

REPOSITORY = "/Volumes/Backup/Archives.snapdb/files1"
LATEST = REPOSITORY + "/Latest"
FINAL_NAME = re.compile(r"\d{4}-\d\d-\d\d-\d{6}")
STATE_FOLDER = "/var/lib/halyard"
RECORD = STATE_FOLDER + "/last-backup.json"
UNDO_RECORD = STATE_FOLDER + "/undo/depotHost.json"
ITEMS = ["/srv/depot", "/srv/single"]

PLUGIN = """#!/bin/sh
case $2 in
  backup) mkdir -p "$4/srv" "$4/etc" ;;
  size) echo 'total := 2048' ;;
  verify) echo 'Number of failures to match := 0' ;;
  restore) for word; do
      [ "$last" != -path ] || echo "done ${word##*/}" >>"${HALYARD_RESTORE_JOURNAL:-/dev/null}"; last=$word
    done ;;
esac
exit 0
"""

# What every root has, and where the repository is.
EXCLUSIONS = "/usr\n/proc/*\n/dev/*\n/run/*\n/tmp/*\n/opt\n/lib*\n/bin\n/sbin\n/Volumes/*\n/disk/*\n"


def service(items):
    """The one service that is on, with its data items."""
    programs = {word + "BinaryPath": "/opt/kit-plugin"
                for word in ("Backup", "Restore", "Verify", "Size", "Browse")}
    return {"/private/etc/halyard/30-depotHost.plist": sweep_cases.property_list({
                "ServiceName": "depotHost", "BackupLog": "/log", "RestoreLog": "/log",
                "DataFiles": items, **programs}),
            "/private/etc/halyard/com.vantor.Halyard.plist": sweep_cases.property_list(
                {"services": {"depotHost": 1}})}


def make_root(folder, name, program):
    """A private root with the program and the host kit that stand beside it."""
    root = os.path.join(folder, name)
    built = os.path.dirname(program)
    kit = [os.path.join(built, name) for name in ("snapwheel", "helmsman", "drivectl")]
    libraries = [word for path in kit for word in ("--libraries-of", path)]
    tool = os.path.dirname(os.path.abspath(__file__)) + "/private-root"
    subprocess.run([tool, "create", root, "--program", program, *libraries,
                    "--template", folder + "/template"], check=True)
    os.mkdir(root + "/opt")
    for plugin, text in (("plugin", sweep_cases.PLUGIN), ("kit-plugin", PLUGIN)):
        with open(f"{root}/opt/{plugin}", "w", encoding="ascii") as file:
            file.write(text)
        os.chmod(f"{root}/opt/{plugin}", 0o755)
    for path in kit[:2]:
        shutil.copy(path, root + "/usr/sbin")
    return root


def snapshots(state):
    """The snapshots under their final names: name to its tree."""
    names = {match.group() for path in state
             if (match := FINAL_NAME.match(path, len(REPOSITORY) + 1))
             and path == f"{REPOSITORY}/{match.group()}"}
    return {name: part(state, f"{REPOSITORY}/{name}") for name in names}


def leftovers(state):
    return [path for path in state
            if path.startswith(REPOSITORY + "/") and path.endswith(".inProgress")]


def volume(snapshot):
    return part(snapshot, "/System")


def manifest(snapshot):
    """What the record of a snapshot says; none when it cannot be read."""
    try:
        return json.loads(snapshot["/.snapwheel/manifest.json"][2])
    except (KeyError, ValueError):
        return None


class KitCase(sweep_cases.Case):
    """`before` are the command lines that make the initial state."""

    program = "/usr/sbin/snapwheel"
    before = []
    statuses = {0, 1, 4}
    own = [REPOSITORY, "/run", STATE_FOLDER]

    def prepare(self, state):
        place(state, "", sweep_cases.data_tree("live"))
        for path in ("/srv/depot/a", "/srv/depot/sub/b"):
            state["/data" + path] = file("first " + path)
        state["/data/srv/link"] = ("link", 0, "depot")
        state["/etc/halyard-host/snapwheel.exclude"] = file(EXCLUSIONS)
        state["/run"] = folder()

    def ready(self, root):
        for program, words in self.before:
            outcome = sweep_host.run(root, words, program=program)
            if outcome.status != 0:
                raise SystemExit(f"sweep: {self.name} cannot be prepared: {words} ends with "
                                 f"{outcome.status}: {outcome.err.decode()}")
        self.change(root)
        self.initial = sweep_host.listing(root)

    def change(self, root):
        """What is different when the command is run."""
        with open(root + "/data/srv/depot/a", "w", encoding="ascii") as changed:
            changed.write("second")

    def check_fault(self, outcome, after):
        wrong = []
        if outcome.hung:
            wrong.append("hangs")
        elif outcome.status < 0:
            wrong.append(f"ended by signal {-outcome.status}")
        elif outcome.status not in self.statuses:
            wrong.append(f"ends with status {outcome.status}")
        wrong += self.check_state(after, interrupted=False)
        if outcome.status == 2:  # A configuration file that cannot be read, too: nothing was done.
            wrong += [f"ends with 2 and changes {path}" for path in {*after, *self.initial}
                      if after.get(path) != self.initial.get(path) and not path.startswith("/run")]
        if outcome.status == 0:
            wrong += [f"ends with 0, but {text}" for text in self.broken_promises(after)]
        return wrong

    def check_small_files(self, after):
        wrong = []
        known = snapshots(self.initial)
        for name, snapshot in snapshots(after).items():
            if name in known:
                if volume(snapshot) != volume(known[name]):
                    wrong.append(f"the snapshot {name} was changed")
            else:
                wrong += [f"the new snapshot {text}" for text in self.check_new(snapshot)]
        target = after.get(LATEST, ("", 0, None))[2]
        if target is not None and target not in snapshots(after):
            wrong.append("Latest leads nowhere")
        for path in (RECORD, UNDO_RECORD):
            if path in after and after[path] != self.initial.get(path):
                try:
                    json.loads(after[path][2])
                except ValueError:
                    wrong.append(f"{path} is neither old nor complete")
        return wrong

    def check_new(self, snapshot):
        """Of one under a final name: it is as its manifest says."""
        record = manifest(snapshot)
        if record is None or not record.get("finished"):
            return ["stands under its name without a finished manifest"]
        held, source = volume(snapshot), self.source()
        if record["complete"] and held != source:
            return [f"is called complete and lacks or changes {path or '/'}"
                    for path in source if held.get(path) != source[path]] or ["holds too much"]
        # A folder whose attributes could not be had is there, and is named.
        named = {"/" + entry["path"] if entry["path"] else "" for entry in record["missing"]}
        return [f"holds another {path}" for path, item in held.items()
                if source.get(path) != item and path not in named]

    def source(self):
        return part(self.initial, "/data")

    def broken_promises(self, after):
        """What a status of 0 says and is not so."""
        return []

    def is_done(self):
        return not self.broken_promises(self.final)

    def check_again(self, outcome, before, after):
        wrong = []
        if outcome.hung or outcome.status != 0:
            wrong.append(f"the next run ends with status {outcome.status}")
        return wrong + self.check_state(after, True) + self.broken_promises(after)


def engine(*words):
    return [*words, "--destination", "/Volumes/Backup", "--computer", "files1"]


TAKE = ("/usr/sbin/snapwheel", engine("snapshot", "--source", "/data"))


class Snapshot(KitCase):
    name, words = "snapwheel snapshot", TAKE[1]
    before = [TAKE]

    def broken_promises(self, after):
        new = {name: tree for name, tree in snapshots(after).items()
               if name not in snapshots(self.initial)}
        wrong = [] if any(volume(tree) == self.source() for tree in new.values()) else [
            "no snapshot holds what the source holds"]
        if after.get(LATEST, ("", 0, None))[2] != max(snapshots(after), default=None):
            wrong.append("Latest does not lead to the newest snapshot")
        return wrong + [f"{path} is left" for path in leftovers(after)]


class Delete(KitCase):
    name, words = "snapwheel delete", []
    before = [TAKE, TAKE]

    def ready(self, root):
        super().ready(root)
        self.doomed = min(snapshots(self.initial))
        self.words = engine("delete", self.doomed)

    def broken_promises(self, after):
        wrong = ["it is still there"] if self.doomed in snapshots(after) else []
        return wrong

    def check_small_files(self, after):
        others = set(snapshots(self.initial)) - {self.doomed} - set(snapshots(after))
        return super().check_small_files(after) + [f"{name} is gone, too" for name in others]

    def check_again(self, outcome, before, after):
        if self.doomed not in snapshots(before) and outcome.status == 1:
            outcome.status = 0  # The killed run was done with it.
        return super().check_again(outcome, before, after)


class Prune(Delete):
    name = "snapwheel prune"

    def check_fault(self, outcome, after):
        # As long as the newest snapshot cannot be read the older ones stay.
        return [text for text in super().check_fault(outcome, after)
                if text != "ends with 0, but it is still there"]

    def ready(self, root):
        super().ready(root)
        self.words = engine("prune", "--keep-last", "1", "--days-to-retain", "0")


class RestoreTree(KitCase):
    name, words = "snapwheel restore", engine("restore", "latest", "--to", "/restored", "--force")
    before = [TAKE]
    own = [*KitCase.own, "/restored"]

    def prepare(self, state):
        super().prepare(state)
        place(state, "/restored", {"": folder(), "/srv": folder(), "/srv/depot": folder(),
                                   "/srv/depot/a": file("what stood there"),
                                   "/own": file("somebody's")})

    def saved(self):
        return volume(snapshots(self.initial)[max(snapshots(self.initial))])

    def check_own(self, after, interrupted):
        wrong = []
        old, saved = part(self.initial, "/restored"), self.saved()
        for path, item in part(after, "/restored").items():
            name = path.rsplit("/", 1)[-1]
            if item[0] != "file" or name.startswith(".halyard"):
                continue
            # What is new there is closed to everybody else until it is whole.
            begun = path not in old and item[1] == 0o600
            if not begun and item[2] not in [state[path][2] for state in (old, saved)
                                             if path in state]:
                wrong.append(f"/restored{path} is half written")
        if after.get("/restored/own") != self.initial["/restored/own"]:
            wrong.append("something that is not in the snapshot was touched")
        return wrong

    def broken_promises(self, after):
        now = part(after, "/restored")
        return [f"{path} is not restored" for path, item in self.saved().items()
                if now.get(path) != item and path != ""]


class Check(KitCase):
    name, words = "snapwheel check", engine("check", "--verify")
    before = [TAKE, TAKE]


class Pin(KitCase):
    name, words = "snapwheel pin", []
    before = [TAKE]

    def ready(self, root):
        super().ready(root)
        self.words = engine("pin", max(snapshots(self.initial)), "--note", "kept")

    def check_own(self, after, interrupted):
        return [f"{path} is not complete" for path, item in after.items()
                if path.endswith("/.snapwheel/pin") and b"kept" not in item[2]]

    def broken_promises(self, after):
        return [f"{name} is not pinned" for name, tree in snapshots(after).items()
                if "/.snapwheel/pin" not in tree]


CASES = [Snapshot, Delete, Prune, RestoreTree, Check, Pin]
