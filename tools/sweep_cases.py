# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""The commands that are swept: the state before each, and what must hold after any fault."""

import plistlib
import re
import xml.parsers.expat

METADATA = "/.Halyards"
SIGNATURE = METADATA + "/.halyardSignature"
REPORT = METADATA + "/ServerSourceDiskInfo.plist"
CATALOGUE = METADATA + "/master.browse.plist"
MARKER = METADATA + "/restoreWasAttempted"
PID_FILE = "/private/var/run/HalyardRunning.pid"
LOG_FOLDER = "/private/var/log/halyard"
SNAPSHOT = "/Volumes/Backup/Archives.snapdb/files1/one"

TEMPORARY = "/tmp/.halyardTmpFile"

DATA = ["/srv/depot", "/srv/single", "/srv/site.db"]
CONFIGURATION = ["/etc/depot.conf"]

PLUGIN = """#!/bin/sh
case $2 in
  backup) mkdir -p "$4/srv" "$4/etc" ;;
  browse) printf '<plist version="1.0"><array><string>%s</string></array></plist>' "${4##*/}" ;;
esac
case $2 in
  backup) printf '<plist version="1.0"><array><true/></array></plist>' >"$4/${4##*/}.browse.plist" ;;
esac
"""


def folder(mode=0o755):
    return ("folder", mode, None)


def file(text, mode=0o644):
    return ("file", mode, text.encode())


def property_list(value):
    return ("file", 0o644, plistlib.dumps(value))


def part(state, path):
    """The item at a path and all in it, by path relative to it."""
    return {name[len(path):]: item for name, item in state.items()
            if name == path or name.startswith(path + "/")}


def place(state, path, tree):
    for name, item in tree.items():
        state[path + name] = item


def make_parents(state):
    for path in list(state):
        while path.count("/") > 1:
            path = path[:path.rindex("/")]
            state.setdefault(path, folder())


def data_tree(word):
    """What the three data items hold, told apart by the word."""
    return {"/srv/depot": folder(0o750), "/srv/depot/a": file(word + " a" * 3000, 0o640),
            "/srv/depot/" + word: file(""), "/srv/depot/link": ("link", 0, word),
            "/srv/depot/sub": folder(), "/srv/depot/sub/b": file(word + " b", 0o4755),
            "/srv/single": file(word + " single"), "/srv/site.db": file(word + " site" * 5000)}


def service_folders(root, word):
    tree = data_tree(word)
    state = {}
    for path, item in tree.items():
        service = "siteHost" if path == "/srv/site.db" else "depotHost"
        state[f"{root}/{service}{path}"] = item
    state[root + "/depotHost/etc/depot.conf"] = file(word + " configuration")
    return state


def copy_of(path, state):
    """Where a state's metadata folder holds the copy of a live path."""
    return next(name for name in state if name.endswith("Host" + path))


def describe(state):
    state["/private/etc/halyard/30-depotHost.plist"] = property_list({
        "ServiceName": "depotHost", "BackupBinaryPath": "/opt/plugin",
        "RestoreBinaryPath": "/opt/plugin", "BackupLog": "/log", "RestoreLog": "/log",
        "ConfigurationFiles": CONFIGURATION, "DataFiles": DATA[:2]})
    state["/private/etc/halyard/50-siteHost.plist"] = property_list({
        "ServiceName": "siteHost", "BackupBinaryPath": "/opt/plugin",
        "RestoreBinaryPath": "/opt/plugin", "BackupLog": "/log", "RestoreLog": "/log",
        "DataFiles": DATA[2:]})


def removal_failed(call, path):
    """Whether the call that failed was the removal of the item, which is tried once."""
    if path == TEMPORARY and call.startswith("openat(") and '"/tmp/", O_RDONLY' in call:
        return True
    return call.startswith("unlinkat(") and any(f'"{name}"' in call for name in path.split("/"))


class Case:
    """One command. `initial` is the state before, `final` and `out` what an undisturbed run gives."""

    program = "/usr/sbin/Halyard"
    name, words = "", []
    again = None  # The command line that follows a kill; the same one where none is named.
    own = []  # Where the command may change something.

    def __init__(self, host):
        self.initial = dict(host)
        describe(self.initial)
        place(self.initial, "", data_tree("live"))
        self.initial["/etc/depot.conf"] = file("live configuration")
        self.initial[LOG_FOLDER + "/server_progress.log"] = file("")
        self.prepare(self.initial)
        make_parents(self.initial)
        self.final, self.out, self.status, self.points = {}, b"", 0, []

    def prepare(self, state):
        pass

    def ready(self, root):
        """Makes what only the programs themselves can; the root holds the initial state."""

    def placed(self, root):
        """What has to be set right when the initial state is made again, such as inode numbers."""

    def is_done(self):
        """Whether the undisturbed run did its work."""
        return True

    def may_be_left(self, path):
        return path in self.initial or path in self.final or path == PID_FILE

    def check_fault(self, outcome, after):
        """What is wrong after a run in which one call failed."""
        wrong = []
        if outcome.hung:
            wrong.append("hangs")
        elif outcome.status < 0:
            wrong.append(f"ended by signal {-outcome.status}")
        elif outcome.status not in {0, 1, 2, 74}:
            wrong.append(f"ends with status {outcome.status}")
        failed = next((line for line in outcome.trace.splitlines() if "(INJECTED)" in line), "")
        wrong += [f"leaves {path}" for path in after
                  if not self.may_be_left(path) and not removal_failed(failed, path)]
        return wrong + self.check_state(after, interrupted=False)

    def check_kill(self, outcome, after):
        wrong = ["hangs"] if outcome.hung else []
        return wrong + self.check_state(after, interrupted=True)

    def check_state(self, after, interrupted):
        wrong = self.check_small_files(after)
        for path, item in self.initial.items():
            if not path.startswith(tuple(self.own)) and after.get(path) != item:
                wrong.append(f"changes {path}")
        return wrong + self.check_own(after, interrupted)

    def check_small_files(self, after):
        wrong = []
        for path, form in ((PID_FILE, rb"[0-9]+ :: \w+\n"), (SIGNATURE, rb"[0-9a-f-]{36}\n|"),
                           (MARKER, rb"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \+0000")):
            if path in after and after[path] != self.initial.get(path):
                if not re.fullmatch(form, after[path][2] or b""):
                    wrong.append(f"{path} is neither old nor complete")
        # The program writes what the volume tool printed: nothing, when it could not be run.
        whole = (self.initial.get(REPORT), self.final.get(REPORT))
        if REPORT in after and after[REPORT] not in whole and after[REPORT][2] != b"":
            wrong.append(f"{REPORT} is neither old nor complete")
        if CATALOGUE in after and after[CATALOGUE] != self.initial.get(CATALOGUE):
            try:
                plistlib.loads(after[CATALOGUE][2])
            except (ValueError, plistlib.InvalidFileException, xml.parsers.expat.ExpatError):
                wrong.append(f"{CATALOGUE} is neither old nor complete")
        return wrong

    def check_own(self, after, interrupted):
        return []

    def check_again(self, outcome, before, after):
        """What is wrong after the same command ran again on what a killed run had left."""
        del before
        wrong = []
        if outcome.hung or outcome.status != self.status or outcome.out != self.out:
            wrong.append(f"the next run ends with status {outcome.status}")
        for path in self.final:
            if path.startswith(LOG_FOLDER) or path == SIGNATURE:
                continue
            if after.get(path) != self.final[path]:
                wrong.append(f"the next run leaves another {path}")
        return wrong


class Backup(Case):
    name, words = "backup", ["-cmd", "backup", "-source", "/"]
    own = [METADATA, LOG_FOLDER, "/tmp", "/Volumes"]

    def prepare(self, state):
        state.update(service_folders(METADATA, "saved"))
        state[SIGNATURE] = file("old signature")
        state[REPORT] = file("old report")
        state[CATALOGUE] = property_list({})

    def is_done(self):
        return (self.final[SIGNATURE] != self.initial[SIGNATURE] and
                all(part(self.final, copy_of(path, self.initial)) == part(self.initial, path)
                    for path in DATA))

    def may_be_left(self, path):
        # The folder of a service whose descriptor could not be read.
        return super().may_be_left(path) or path == METADATA + "/(null)"

    def check_own(self, after, interrupted):
        wrong = []
        for path in DATA:
            copy = copy_of(path, self.initial)
            now, old, new = (part(state, copy) for state in (after, self.initial, self.final))
            # A folder whose removal failed half way stays, and the copy over it is refused.
            if now != new and not now.items() <= old.items():
                wrong.append(f"{copy} is half written")
        if SIGNATURE not in after:
            return wrong
        signed = self.initial if after[SIGNATURE] == self.initial[SIGNATURE] else self.final
        for path in (METADATA + name for name in part(signed, METADATA)):
            if path in (SIGNATURE, CATALOGUE) or after.get(path) == signed[path]:
                continue
            # A call that failed may have cost a file: that run goes on and signs what there is. It
            # keeps an old folder only when that could not be removed, and then adds to it.
            if interrupted or signed is self.initial and path not in after:
                wrong.append(f"the signature stands without {path}")
        return wrong


class PostBackupComplete(Backup):
    name, words = "postBackupComplete", ["-cmd", "postBackupComplete"]

    def is_done(self):
        return METADATA not in self.final

    def check_own(self, after, interrupted):
        old = part(self.initial, METADATA)
        now = part(after, METADATA)
        wrong = [] if now.items() <= old.items() else ["the metadata folder gets something new"]
        if SIGNATURE in after and now != old:
            wrong.append("the signature stands on an incomplete folder")
        return wrong


class RestoreService(Case):
    name = "restoreService"
    words = ["-cmd", "restoreService", "-path", SNAPSHOT, "-target", "/", "-service", "Host"]
    own = ["/srv", "/etc/depot.conf", LOG_FOLDER]
    root = SNAPSHOT + "/HD/.Halyards"

    def prepare(self, state):
        state.update(service_folders(self.root, "saved"))
        place(state, "/srv/depot.previous", part(data_tree("older"), "/srv/depot"))
        state["/srv/single.previous"] = file("older single")
        # One service text that selects both descriptors.
        state["/private/etc/halyard/com.vantor.Halyard.plist"] = property_list(
            {"services": {"Host": 1, "depotHost": 1, "siteHost": 1}})

    def is_done(self):
        return all(part(self.final, path) == part(self.initial, copy_of(path, self.initial)) and
                   part(self.final, path + ".previous") == part(self.initial, path)
                   for path in DATA)

    def check_own(self, after, interrupted):
        wrong = []
        for path in DATA + CONFIGURATION:
            live, aside = part(after, path), part(after, path + ".previous")
            old = part(self.initial, path)
            if live and live not in (old, part(self.final, path)):
                wrong.append(f"{path} is half written")
            if live != old and aside != old:
                wrong.append(f"the old content of {path} is lost")
        return wrong

    def check_again(self, outcome, before, after):
        wrong = []
        if outcome.hung or outcome.status != 0:
            wrong.append(f"the next run ends with status {outcome.status}")
        for path in DATA:
            old, saved = part(self.initial, path), part(self.final, path)
            if part(after, path) != saved:
                wrong.append(f"the next run does not restore {path}")
            # The second run sets aside what it finds, which may be what the first one restored.
            if part(after, path + ".previous") not in (old, saved):
                wrong.append(f"the next run loses what was at {path}")
        return wrong


class Restore(RestoreService):
    name, words = "restore", ["-cmd", "restore", "-path", "/Volumes", "-target", "/"]
    own = ["/srv", "/etc/depot.conf", LOG_FOLDER, METADATA, "/Halyards", "/tmp"]
    root = METADATA

    def prepare(self, state):
        super().prepare(state)
        state[SIGNATURE] = file("old signature")
        state[REPORT] = property_list({"VolumeUUID": "ANOTHER"})

    def may_be_left(self, path):
        moved = METADATA + path[len("/Halyards"):]
        return (super().may_be_left(path) or path == MARKER or
                path.startswith("/Halyards") and moved in self.initial)

    def check_own(self, after, interrupted):
        wrong = super().check_own(after, interrupted)
        old, now = part(self.initial, METADATA), part(after, METADATA)
        now.pop(MARKER[len(METADATA):], None)
        if not now.items() <= old.items():
            wrong.append("the metadata folder gets something new")
        if SIGNATURE in after and now != old:
            wrong.append("the signature stands on an incomplete folder")
        return wrong

    def check_again(self, outcome, before, after):
        # The killed run may have been done with all but the removal: then there is no second one.
        if METADATA not in before and outcome.status == 1:
            return [f"{path} was not restored" for path in DATA
                    if part(after, path) != part(self.final, path)]
        return super().check_again(outcome, before, after)


class BrowseAll(RestoreService):
    name, words = "browse", ["-cmd", "browse", "-path", SNAPSHOT, "-service", "all"]
    own = ["/tmp"]

    def is_done(self):
        return self.out.count(b"<string>") == 2

    def check_own(self, after, interrupted):
        return []

    def check_again(self, outcome, before, after):
        return Case.check_again(self, outcome, before, after)


CASES = [Backup, Restore, RestoreService, BrowseAll, PostBackupComplete]
