#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Shows that the sweep's checks notice each kind of damage: a check that cannot fail proves nothing.
set -euo pipefail

command -v python3 >/dev/null || { echo "no python3"; exit 77; }
tools=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../../tools" && pwd)
PYTHONPATH=$tools exec python3 -B - <<'PYTHON'
import os
import shutil
import tempfile
import unittest

import sweep_cases as cases
import sweep_host as host


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
