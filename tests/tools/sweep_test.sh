#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Shows that the sweep's checks notice each kind of damage: a check that cannot fail proves nothing.
set -euo pipefail

command -v python3 >/dev/null || { echo "no python3"; exit 77; }
tools=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../../tools" && pwd)
PYTHONPATH=$tools exec python3 -B - <<'PYTHON'
import json
import os
import shutil
import tempfile
import unittest

import sweep_cases as cases
import sweep_helmsman as helmsman
import sweep_host as host
import sweep_kit as kit


class Ended:
    def __init__(self, status=0, hung=False, trace="", out=b""):
        self.status, self.hung, self.trace, self.out = status, hung, trace, out


def prepared(kind):
    """A case whose undisturbed run did what it should, as far as the checks look."""
    case = kind({})
    case.final = dict(case.initial)
    if kind in (cases.Restore, cases.RestoreService):
        for path in cases.DATA + cases.CONFIGURATION:
            live = cases.part(case.initial, path)
            for name in [name for name in case.final if (name + "/").startswith((path + "/", path + ".previous/"))]:
                del case.final[name]
            cases.place(case.final, path + ".previous", live)
            if path in cases.DATA:
                cases.place(case.final, path, cases.part(case.initial, cases.copy_of(path, case.initial)))
    if kind is cases.Backup:
        for path in cases.DATA:
            copy = cases.copy_of(path, case.initial)
            for name in [name for name in case.final if (name + "/").startswith(copy + "/")]:
                del case.final[name]
            cases.place(case.final, copy, cases.part(case.initial, path))
        case.final[cases.SIGNATURE] = cases.file("9c2b9a10-4e5b-4d0e-8b57-3b6f5d1c7a01\n")
    return case


class Checks(unittest.TestCase):
    def found(self, case, after, outcome=None):
        return case.check_fault(outcome or Ended(), after)

    def test_an_undisturbed_run_and_one_that_did_nothing_are_fine(self):
        for kind in cases.CASES:
            case = prepared(kind)
            self.assertEqual(self.found(case, case.initial), [])
            self.assertEqual(self.found(case, case.final), [])
            self.assertEqual(case.check_kill(Ended(-9), case.final), [])

    def test_a_crash_a_hang_and_a_foreign_status(self):
        case = prepared(cases.BrowseAll)
        self.assertEqual(self.found(case, case.initial, Ended(-6)), ["ended by signal 6"])
        self.assertEqual(self.found(case, case.initial, Ended(-9, hung=True)), ["hangs"])
        self.assertEqual(self.found(case, case.initial, Ended(127)), ["ends with status 127"])

    def test_a_half_written_live_folder(self):
        case = prepared(cases.RestoreService)
        after = dict(case.final)
        del after["/srv/depot/sub/b"]
        self.assertEqual(self.found(case, after), ["/srv/depot is half written"])

    def test_a_half_written_live_file(self):
        case = prepared(cases.Restore)
        after = dict(case.final)
        after["/srv/site.db"] = cases.file("saved")
        self.assertEqual(self.found(case, after), ["/srv/site.db is half written"])

    def test_a_lost_original(self):
        case = prepared(cases.RestoreService)
        for path in cases.DATA + cases.CONFIGURATION:
            after = dict(case.final)
            for name in cases.part(case.final, path + ".previous"):
                del after[path + ".previous" + name]
            self.assertEqual(self.found(case, after), [f"the old content of {path} is lost"])

    def test_a_leftover_is_excused_only_when_its_removal_failed(self):
        case = prepared(cases.RestoreService)
        after = dict(case.final) | {"/srv/.halyard-1": cases.folder()}
        self.assertEqual(self.found(case, after), ["leaves /srv/.halyard-1"])
        failed = 'unlinkat(5, ".halyard-1", AT_REMOVEDIR) = -1 EIO (Input/output error) (INJECTED)'
        self.assertEqual(self.found(case, after, Ended(trace=failed)), [])

    def test_anything_that_changes_outside(self):
        case = prepared(cases.Backup)
        after = dict(case.final)
        after["/srv/single"] = cases.file("changed")
        self.assertEqual(self.found(case, after), ["changes /srv/single"])

    def test_a_signature_on_an_incomplete_folder(self):
        for kind in (cases.Restore, cases.PostBackupComplete):
            case = prepared(kind)
            after = dict(case.initial)
            del after[cases.METADATA + "/siteHost/srv/site.db"]
            self.assertIn("the signature stands on an incomplete folder", self.found(case, after))

    def test_a_new_signature_before_its_folder(self):
        case = prepared(cases.Backup)
        after = dict(case.final)
        del after[cases.REPORT]
        self.assertEqual(case.check_kill(Ended(-9), after),
                         ["the signature stands without /.Halyards/ServerSourceDiskInfo.plist"])

    def test_a_half_written_copy(self):
        case = prepared(cases.Backup)
        after = dict(case.final)
        after["/.Halyards/depotHost/srv/single"] = cases.file("li")
        self.assertEqual(self.found(case, after),
                         ["/.Halyards/depotHost/srv/single is half written"])

    def test_half_written_small_files(self):
        case = prepared(cases.Backup)
        for path, text in ((cases.PID_FILE, "471"), (cases.SIGNATURE, "9c2b"),
                           (cases.REPORT, "<?xml"), (cases.CATALOGUE, "<plist><dict>"),
                           (cases.MARKER, "2026-11")):
            after = dict(case.final) | {path: cases.file(text)}
            self.assertIn(f"{path} is neither old nor complete", self.found(case, after))

    def test_a_next_run_that_does_not_restore(self):
        case = prepared(cases.Restore)
        self.assertEqual(case.check_again(Ended(), case.initial, case.final), [])
        wrong = case.check_again(Ended(), case.initial, case.initial)
        self.assertIn("the next run does not restore /srv/single", wrong)


def engine_case(kind):
    """A repository with one snapshot, and the one that the command has made, where it makes one."""
    case = kind({})
    host_folder = kit.REPOSITORY
    case.initial[host_folder] = cases.folder()
    for name in ("2026-11-20-020000", "2026-11-21-020000"):
        cases.place(case.initial, f"{host_folder}/{name}", saved_snapshot(case))
    case.initial[host_folder + "/Latest"] = ("link", 0, "2026-11-21-020000")
    case.doomed = "2026-11-20-020000"
    case.final = dict(case.initial)
    if kind is kit.Snapshot:
        cases.place(case.final, host_folder + "/2026-11-22-020000", saved_snapshot(case))
        case.final[host_folder + "/Latest"] = ("link", 0, "2026-11-22-020000")
    if kind in (kit.Delete, kit.Prune):
        for path in cases.part(case.initial, f"{host_folder}/{case.doomed}"):
            del case.final[f"{host_folder}/{case.doomed}{path}"]
    if kind is kit.RestoreTree:
        cases.place(case.final, "/restored", case.saved())
    return case


def saved_snapshot(case, complete=True):
    manifest = {"finished": "2026-11-22-020001", "complete": complete, "missing": []}
    tree = {"": cases.folder(), "/.snapwheel": cases.folder(),
            "/.snapwheel/manifest.json": cases.file(json.dumps(manifest))}
    cases.place(tree, "/System", cases.part(case.initial, "/data"))
    return tree


class EngineChecks(unittest.TestCase):
    def found(self, case, after, status=1):
        return case.check_fault(Ended(status), after)

    def test_what_did_nothing_and_failed_and_what_is_done_are_fine(self):
        for kind in (kit.Snapshot, kit.Delete, kit.Prune, kit.RestoreTree, kit.Check):
            case = engine_case(kind)
            self.assertEqual(self.found(case, case.initial), [])
            self.assertEqual(self.found(case, case.final, status=0), [])
            self.assertEqual(case.check_again(Ended(0), case.initial, case.final), [])

    def test_a_zero_for_nothing_done(self):
        for kind, text in ((kit.Snapshot, "no snapshot holds what the source holds"),
                           (kit.Delete, "it is still there"),
                           (kit.RestoreTree, "/srv/depot/a is not restored")):
            case = engine_case(kind)
            self.assertIn("ends with 0, but " + text, self.found(case, case.initial, status=0))

    def test_a_complete_snapshot_that_lacks_something(self):
        case = engine_case(kit.Snapshot)
        after = dict(case.final)
        del after[kit.REPOSITORY + "/2026-11-22-020000/System/srv/depot/a"]
        self.assertEqual(self.found(case, after),
                         ["the new snapshot is called complete and lacks or changes /srv/depot/a"])

    def test_a_snapshot_without_a_manifest_under_its_final_name(self):
        case = engine_case(kit.Snapshot)
        after = dict(case.final)
        del after[kit.REPOSITORY + "/2026-11-22-020000/.snapwheel/manifest.json"]
        self.assertEqual(case.check_kill(Ended(-9), after), [
            "the new snapshot stands under its name without a finished manifest"])

    def test_an_earlier_snapshot_that_was_changed_or_is_gone(self):
        case = engine_case(kit.Delete)
        after = dict(case.initial)
        after[kit.REPOSITORY + "/2026-11-21-020000/System/srv/depot/a"] = cases.file("changed")
        self.assertEqual(self.found(case, after), ["the snapshot 2026-11-21-020000 was changed"])
        after = {path: item for path, item in case.initial.items() if "2026-11-21" not in path}
        self.assertEqual(self.found(case, after),
                         ["Latest leads nowhere", "2026-11-21-020000 is gone, too"])

    def test_a_live_file_that_is_half_written(self):
        case = engine_case(kit.RestoreTree)
        after = dict(case.initial) | {"/restored/srv/depot/a": cases.file("what sto", 0o600)}
        self.assertEqual(self.found(case, after), ["/restored/srv/depot/a is half written"])

    def test_an_undo_that_loses_what_was_beside(self):
        case = helmsman.HelmsmanUndo({})
        for path in kit.ITEMS:
            cases.place(case.initial, path + ".previous", cases.part(case.initial, path))
        self.assertEqual(case.check_kill(Ended(-9), case.initial), [])
        after = dict(case.initial)
        del after["/srv/single.previous"]
        self.assertEqual(case.check_kill(Ended(-9), after),
                         ["/srv/single and what is beside it are not what they were"])

    def file_restore(self):
        """A folder that was changed since the snapshot, and what an undisturbed restore makes of it."""
        case = helmsman.FileRestore({})
        cases.place(case.initial, kit.REPOSITORY + "/2026-11-21-020000", saved_snapshot(case))
        cases.place(case.initial, kit.REPOSITORY + "/2026-11-21-020000/System",
                    cases.part(case.initial, "/data"))
        saved = {"": cases.folder(), "/a": cases.file("saved")}
        cases.place(case.initial, kit.REPOSITORY + "/2026-11-21-020000/System" + case.item, saved)
        for path in cases.part(case.initial, kit.REPOSITORY + "/2026-11-21-020000/System" + case.item):
            if path not in saved:
                del case.initial[kit.REPOSITORY + "/2026-11-21-020000/System" + case.item + path]
        after = dict(case.initial)
        for path, item in cases.part(case.initial, case.item).items():
            del after[case.item + path]
            after[case.item + ".previous" + path] = item
        cases.place(after, case.item, saved)
        after[kit.STATE_FOLDER + "/undo/file-0.json"] = cases.file("{}")
        return case, after

    def test_a_file_restore_that_did_nothing_or_all_is_fine(self):
        case, after = self.file_restore()
        self.assertEqual(self.found(case, after, status=0), [])
        self.assertEqual(self.found(case, case.initial), [])
        self.assertEqual(case.check_again(Ended(0), after, case.initial), [])

    def test_a_file_restore_that_loses_says_too_much_or_is_not_undone(self):
        case, after = self.file_restore()
        self.assertIn("ends with 0, but no record of it was kept",
                      self.found(case, {path: item for path, item in after.items()
                                        if "/undo/" not in path}, status=0))
        self.assertIn("ends with 0, but /srv/depot is not restored",
                      self.found(case, case.initial, status=0))
        self.assertEqual(case.check_again(Ended(1), after, after),
                         ["undo ends with 1 and does not bring /srv/depot back"])
        half = dict(after) | {"/srv/depot/a": cases.file("sav")}
        self.assertEqual(case.check_kill(Ended(-9), half), ["/srv/depot is half written"])
        del after["/srv/depot.previous/a"]
        self.assertEqual(case.check_kill(Ended(-9), after), ["what was at /srv/depot is lost"])

    def test_a_configuration_file_that_is_written_anew(self):
        case = helmsman.LeaveOut({})
        self.assertEqual(self.found(case, case.initial), [])
        new = dict(case.initial) | {case.path: cases.file(case.wanted().decode())}
        self.assertEqual(self.found(case, new, status=0), [])
        lost = dict(case.initial) | {case.path: cases.file("leave-out = /srv/single\n")}
        self.assertEqual(self.found(case, lost), [f"{case.path} is neither old nor new"])

    def test_preferences_that_lose_a_service(self):
        case = helmsman.Disable({})
        lost = dict(case.initial) | {case.path: cases.property_list({"services": {}})}
        self.assertEqual(self.found(case, lost), [f"{case.path} is neither old nor new"])

    def test_a_record_that_is_half_written(self):
        case = engine_case(kit.Check)
        after = dict(case.initial) | {kit.RECORD: cases.file('{"started": "2026')}
        self.assertEqual(self.found(case, after), [f"{kit.RECORD} is neither old nor complete"])


class State(unittest.TestCase):
    def test_a_reset_makes_any_state_the_wanted_one(self):
        root = tempfile.mkdtemp()
        try:
            wanted = prepared(cases.Restore).initial
            host.reset(root, wanted)
            self.assertEqual(host.listing(root), wanted)
            os.unlink(root + "/srv/single")
            os.mkdir(root + "/srv/single")
            os.symlink("x", root + "/srv/single/link")
            os.chmod(root + "/srv/depot/a", 0)
            host.reset(root, wanted)
            self.assertEqual(host.listing(root), wanted)
        finally:
            shutil.rmtree(root)

    def test_points_begin_after_the_loader_and_count_from_the_start(self):
        trace = ('execve("/usr/sbin/chroot", ...) = 0\nopenat(1) = 3\nexecve("/usr/sbin/Halyard", '
                 '...) = 0\nopenat(2) = 3\nprlimit64(0, RLIMIT_STACK, NULL, {}) = 0\nbrk(NULL) = 1\n'
                 'openat(3) = 3\n--- SIGCHLD {} ---\nread(3, "x(", 2) = 2\nopenat(4) = 3\n')
        self.assertEqual(host.points_of(trace), [("openat", 3), ("read", 1), ("openat", 4)])


unittest.main()
PYTHON
