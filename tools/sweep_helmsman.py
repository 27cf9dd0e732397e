# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""The commands of helmsman that are swept, on one service."""

import datetime
import glob
import json
import plistlib
import subprocess

import sweep_cases
import sweep_host
from sweep_cases import file, part
from sweep_kit import (RECORD, STATE_FOLDER, UNDO_RECORD, KitCase, ITEMS, manifest, service, snapshots,
                       volume)

HELMSMAN = "/usr/sbin/helmsman"


def identity_of(path):
    """The inode number and the birth in nanoseconds, by which helmsman knows what it set aside."""
    inode, day, clock, zone = subprocess.run(["stat", "-c", "%i %w", path], check=True, text=True,
                                           capture_output=True).stdout.split()
    whole, fraction = clock.split(".")
    birth = datetime.datetime.fromisoformat(f"{day}T{whole}{zone[:3]}:{zone[3:]}")
    return int(inode), int(birth.timestamp()) * 10**9 + int(fraction)


def renew_records(root):
    """A state that is made again has other inodes: the records of restores get theirs."""
    for path in glob.glob(root + STATE_FOLDER + "/undo/*.json"):
        with open(path, encoding="utf-8") as record:
            document = json.load(record)
        for item in document["items"]:
            if item["wasLive"]:
                item["aside"], item["asideBorn"] = identity_of(root + item["path"] + ".previous")
        with open(path, "w", encoding="utf-8") as record:
            json.dump(document, record)


class HelmsmanCase(KitCase):
    """One service, and a backup of it with the engine's snapshot."""

    program = "/usr/sbin/helmsman"
    statuses = {0, 1, 2, 3, 4}
    own = [*KitCase.own, sweep_cases.METADATA, sweep_cases.LOG_FOLDER, "/tmp", "/private/var/run",
           "/srv"]
    before = [("/usr/sbin/helmsman", ["backup"])]

    def prepare(self, state):
        super().prepare(state)
        del state["/private/etc/halyard/50-siteHost.plist"]
        state.update(service(ITEMS))

    def change(self, root):
        for path in ("/srv/depot/a", "/srv/single"):
            with open(root + path, "w", encoding="ascii") as changed:
                changed.write("changed since")

    def source(self):
        return {}

    def check_new(self, snapshot):
        record = manifest(snapshot)
        if record is None or not record.get("finished"):
            return ["stands under its name without a finished manifest"]
        held = part(volume(snapshot), "/srv")
        if record["complete"] and held != part(self.initial, "/srv"):
            return ["is called complete and does not hold /srv"]
        return []

    def check_own(self, after, interrupted):
        """Nothing of the service's own is lost: a path holds what it held, or that is beside it."""
        wrong = []
        for path in ITEMS:
            old, new = part(self.initial, path), part(self.final or self.initial, path)
            live, aside = part(after, path), part(after, path + ".previous")
            if live and live not in (old, new):
                wrong.append(f"{path} is half written")
            if old not in (live, aside):
                wrong.append(f"what was at {path} is lost")
        return wrong


class HelmsmanBackup(HelmsmanCase):
    name, words = "helmsman backup", ["backup"]

    def broken_promises(self, after):
        wrong = []
        new = [tree for name, tree in snapshots(after).items()
               if name not in snapshots(self.initial)]
        wanted = part(self.initial, "/srv/depot")
        saved = sweep_cases.METADATA + "/depotHost/srv/depot"
        if not any(part(volume(tree), saved) == wanted and
                   sweep_cases.SIGNATURE in volume(tree) and manifest(tree)["complete"]
                   for tree in new):
            wrong.append("no snapshot holds the service whole")
        try:
            if json.loads(after[RECORD][2])["result"] != "good":
                wrong.append("its record says otherwise")
        except (KeyError, ValueError):
            wrong.append("there is no record of it")
        return wrong


class HelmsmanRestore(HelmsmanCase):
    name, words = "helmsman restore", ["restore", "depotHost", "--yes"]

    def saved(self, path):
        newest = volume(snapshots(self.initial)[max(snapshots(self.initial))])
        return part(newest, sweep_cases.METADATA + "/depotHost" + path)

    def broken_promises(self, after):
        wrong = [f"{path} is not restored" for path in ITEMS
                 if part(after, path) != self.saved(path)]
        if UNDO_RECORD not in after:
            wrong.append("no record of it was kept")
        return wrong

    def check_again(self, outcome, before, after):
        # What the first run set aside is not given up for a second one: that is said, with 1.
        if outcome.status in (1, 4):
            return self.check_state(after, True)
        return super().check_again(outcome, before, after)


class HelmsmanUndo(HelmsmanRestore):
    name, words = "helmsman undo", ["undo", "depotHost", "--yes"]

    def ready(self, root):
        super().ready(root)
        outcome = sweep_host.run(root, ["restore", "depotHost", "--yes"], program=self.program)
        if outcome.status != 0:
            raise SystemExit(f"sweep: nothing to undo: {outcome.err.decode()}")
        self.initial = sweep_host.listing(root)

    def placed(self, root):
        renew_records(root)

    def check_own(self, after, interrupted):
        wrong = []
        for path in ITEMS:
            pair = [part(self.initial, path), part(self.initial, path + ".previous")]
            live, aside = part(after, path), part(after, path + ".previous")
            if [live, aside] not in (pair, pair[::-1]):
                wrong.append(f"{path} and what is beside it are not what they were")
        return wrong

    def check_again(self, outcome, before, after):
        # When the killed run was done but for its end, the next one brings the restored items back.
        wrong = [] if outcome.status in (0, 1, 4) else [f"the next run ends with {outcome.status}"]
        return wrong + self.check_state(after, True)

    def broken_promises(self, after):
        return [f"{path} is not taken back" for path in ITEMS
                if part(after, path) != part(self.initial, path + ".previous")]


class FileRestore(HelmsmanCase):
    """One folder in the place of the live one; after a kill undo is run, and not a second restore."""

    item = "/srv/depot"
    name, words = "helmsman file restore", ["file", "restore", item, "--in-place", "--yes"]
    again = ["undo", item, "--yes"]

    def saved(self):
        return part(volume(snapshots(self.initial)[max(snapshots(self.initial))]), self.item)

    def check_own(self, after, interrupted):
        live, aside = part(after, self.item), part(after, self.item + ".previous")
        old = part(self.initial, self.item)
        wrong = []
        if live and live not in (old, self.saved()):
            wrong.append(f"{self.item} is half written")
        if old not in (live, aside):
            wrong.append(f"what was at {self.item} is lost")
        if part(after, "/srv/single") != part(self.initial, "/srv/single"):
            wrong.append("something else was touched")
        return wrong

    def broken_promises(self, after):
        wrong = [] if part(after, self.item) == self.saved() else [f"{self.item} is not restored"]
        if part(after, self.item + ".previous") != part(self.initial, self.item):
            wrong.append("what stood there is not beside it")
        records = [path for path in part(after, STATE_FOLDER + "/undo") if path.endswith(".json")]
        return wrong if records else wrong + ["no record of it was kept"]

    def check_again(self, outcome, before, after):
        wrong = self.check_state(after, True)
        if outcome.hung or outcome.status not in (0, 1, 4):
            wrong.append(f"undo ends with status {outcome.status}")
        if part(after, self.item) != part(self.initial, self.item):
            wrong.append(f"undo ends with {outcome.status} and does not bring {self.item} back")
        return wrong


class FileUndo(FileRestore):
    name, words = "helmsman undo file", FileRestore.again
    before = [*FileRestore.before]

    def ready(self, root):
        super().ready(root)
        outcome = sweep_host.run(root, FileRestore.words, program=self.program)
        if outcome.status != 0:
            raise SystemExit(f"sweep: nothing to undo: {outcome.err.decode()}")
        self.initial = sweep_host.listing(root)

    def placed(self, root):
        renew_records(root)

    def sides(self, state):
        return [part(state, self.item), part(state, self.item + ".previous")]

    def check_own(self, after, interrupted):
        pair = self.sides(self.initial)
        return [] if self.sides(after) in (pair, pair[::-1]) else [
            f"{self.item} and what is beside it are not what they were"]

    def broken_promises(self, after):
        return [] if self.sides(after) == self.sides(self.initial)[::-1] else [
            f"{self.item} is not taken back"]

    def check_again(self, outcome, before, after):
        # Undone again, it is as the restore had it.
        return self.check_state(after, True)


class Tidy(HelmsmanUndo):
    name, words = "helmsman tidy", ["tidy", "--yes"]

    def check_own(self, after, interrupted):
        return [f"{path} was changed" for path in ITEMS
                if part(after, path) != part(self.initial, path)]

    def check_again(self, outcome, before, after):
        return KitCase.check_again(self, outcome, before, after)

    def broken_promises(self, after):
        return [f"{path}.previous is still there" for path in ITEMS
                if part(after, path + ".previous")]


class Scrub(HelmsmanCase):
    name, words = "helmsman scrub", ["scrub"]
    record = STATE_FOLDER + "/scrub.json"

    def check_own(self, after, interrupted):
        try:
            if self.record in after:
                json.loads(after[self.record][2])
        except ValueError:
            return [f"{self.record} is neither old nor complete"]
        return super().check_own(after, interrupted)

    def broken_promises(self, after):
        try:
            record = json.loads(after[self.record][2])
        except (KeyError, ValueError):
            return ["there is no record of it"]
        isGood = record["result"] == "good" and record["partsRead"]
        return [] if isGood else ["its record says otherwise"]


class LeaveOut(HelmsmanCase):
    """A line of a configuration file that is the administrator's."""

    name, words = "helmsman volumes", ["volumes", "leave-out", "/srv/single"]
    path = "/etc/halyard-host/helmsman.conf"
    own = [path]
    before = []

    def prepare(self, state):
        super().prepare(state)
        state[self.path] = file("# mine\nleave-out = /srv/other\n")

    def wanted(self):
        return self.initial[self.path][2] + b"leave-out = /srv/single\n"

    def check_own(self, after, interrupted):
        text = after.get(self.path, ("", 0, b""))[2]
        isKept = text in (self.initial[self.path][2], self.wanted())
        return [] if isKept else [f"{self.path} is neither old nor new"]

    def broken_promises(self, after):
        return [] if after[self.path][2] == self.wanted() else ["nothing is left out"]


class Disable(HelmsmanCase):
    name, words = "helmsman disable", ["disable", "depotHost"]
    path = "/private/etc/halyard/com.vantor.Halyard.plist"
    own = [path]
    before = []

    def services(self, state):
        try:
            return plistlib.loads(state[self.path][2])["services"]
        except (KeyError, ValueError):
            return None

    def check_own(self, after, interrupted):
        isWhole = self.services(after) in ({"depotHost": 0}, {"depotHost": 1})
        return [] if isWhole else [f"{self.path} is neither old nor new"]

    def broken_promises(self, after):
        return [] if self.services(after) == {"depotHost": 0} else ["it is still on"]


CASES = [HelmsmanBackup, HelmsmanRestore, HelmsmanUndo, FileRestore, FileUndo, Tidy, Scrub, LeaveOut,
         Disable]
