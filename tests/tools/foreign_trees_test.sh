#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Shows that the comparison of tools/foreign-trees notices each kind of difference, and only these.
set -euo pipefail

command -v python3 >/dev/null || { echo "no python3"; exit 77; }
[[ $EUID -eq 0 ]] || { echo "it needs root"; exit 77; }
tools=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../../tools" && pwd)
PYTHONPATH=$tools exec python3 -B - <<'PYTHON'
import os
import random
import shutil
import subprocess
import tempfile
import unittest

import foreign_writers
import tamper
import tree_facts

HOLED = b"\xff\xfe" + b"n" * 250


class TwoTrees(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.chance = random.Random(1)
        self.original, self.copy = self.folder + "/original/tree", self.folder + "/copy/tree"
        os.mkdir(self.folder + "/copy")
        foreign_writers.write_still(self.original, self.chance)
        subprocess.run(["cp", "-a", "--", self.original, self.copy], check=True)

    def differences(self, with_flags=False):
        return tree_facts.differences(tree_facts.facts_of(self.original, (), with_flags),
                                      tree_facts.facts_of(self.copy, (), with_flags))

    def facts_that_differ(self, with_flags=False):
        return [line.split(" is ")[0] for line in self.differences(with_flags)]

    def keep_time(self, path, change):
        status = os.lstat(path)
        change()
        os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns), follow_symlinks=False)

    def test_a_true_copy_does_not_differ(self):
        self.assertGreater(len(tree_facts.facts_of(self.original)), 25)
        self.assertEqual(self.differences(), [])

    def test_holes_are_contents(self):
        path = os.fsencode(self.copy) + b"/" + HOLED
        self.keep_time(path, lambda: os.posix_fallocate(os.open(path, os.O_RDWR), 0, 20 << 20))
        self.assertEqual(self.differences(), [])

    def test_a_byte(self):
        tamper.flip(self.copy + "/deep/file3", os.stat(self.copy + "/deep/file3"))
        self.assertEqual(self.facts_that_differ(), ["deep/file3: contents"])

    def test_a_byte_behind_a_hole(self):
        path = os.fsencode(self.copy) + b"/" + HOLED
        tamper.flip(path, os.stat(path))
        self.assertEqual(len(self.differences()), 1)
        self.assertIn(": contents is ", self.differences()[0])

    def test_data_that_moved_within_a_file(self):
        path = os.fsencode(self.copy) + b"/" + HOLED

        def move():
            with open(path, "r+b") as file:
                file.truncate(0)
                file.truncate(1 << 30)
                os.pwrite(file.fileno(), b"in the middle of a hole", 12345678 + 4096)
        self.keep_time(path, move)
        self.assertEqual(len(self.differences()), 1)

    def test_zeros_at_the_end(self):
        path = self.copy + "/deep/file7"
        self.keep_time(path, lambda: os.truncate(path, os.stat(path).st_size + 1))
        self.assertEqual(self.facts_that_differ(), ["deep/file7: size"])

    def test_a_mode(self):
        os.chmod(self.copy + "/deep/file5", 0o6754)
        self.assertEqual(self.facts_that_differ(), ["deep/file5: mode"])

    def test_the_owner_of_a_link(self):
        os.lchown(self.copy + "/dangling", 1815, 1815)
        self.assertEqual(self.facts_that_differ(), ["dangling: owner"])

    def test_a_nanosecond(self):
        os.utime(self.copy + "/deep/file6", ns=(1, -1234567889))
        self.assertEqual(self.facts_that_differ(), ["deep/file6: time"])

    def test_the_time_of_the_root(self):
        os.utime(self.copy, ns=(1, 1))
        self.assertEqual(self.facts_that_differ(), ["(the root): time"])

    def test_an_attribute(self):
        os.setxattr(self.copy + "/deep/file2", "user.note", b"other")
        self.assertEqual(self.facts_that_differ(), ["deep/file2: attributes"])

    def test_an_empty_attribute(self):
        os.removexattr(self.copy + "/deep/file3", "trusted.note")
        self.assertEqual(self.facts_that_differ(), ["deep/file3: attributes"])

    def test_an_access_control_list(self):
        subprocess.run(["setfacl", "-m", "u:1815:r", self.copy + "/deep/er"], check=True)
        self.assertEqual(self.facts_that_differ(), ["deep/er: attributes"])

    def test_a_capability(self):
        os.removexattr(self.copy + "/deep/file4", "security.capability")
        self.assertEqual(self.facts_that_differ(), ["deep/file4: attributes"])

    def test_a_flag(self):
        subprocess.run(["chattr", "+d", self.copy + "/deep/file8"], check=True)
        self.assertEqual(self.facts_that_differ(with_flags=True), ["deep/file8: flags"])

    def test_a_target(self):
        tamper.retarget(os.fsencode(self.copy) + b"/dangling", os.lstat(self.copy + "/dangling"))
        self.assertIn("dangling: target", self.facts_that_differ())

    def test_a_name_of_its_own(self):
        path = self.copy + "/deep/er/second name"
        status = os.stat(self.copy + "/deep/er")
        subprocess.run(["cp", "-a", "--", path, path + "~"], check=True)
        os.rename(path + "~", path)
        os.utime(self.copy + "/deep/er", ns=(status.st_atime_ns, status.st_mtime_ns))
        self.assertEqual(self.facts_that_differ(), [
            "deep/er/second name: names", "deep/file1: names", "third\\nname: names"])

    def test_a_device(self):
        os.unlink(self.copy + "/zero")
        subprocess.run(["mknod", "-m", "666", self.copy + "/zero", "c", "1", "3"], check=True)
        self.assertIn("zero: device", self.facts_that_differ())

    def test_a_kind(self):
        os.unlink(self.copy + "/fifo")
        os.mkdir(self.copy + "/fifo")
        self.assertIn("fifo: kind", self.facts_that_differ())

    def test_what_is_missing_and_what_is_too_much(self):
        os.rename(self.copy + "/deep/file9", self.copy + "/deep/filf")
        self.assertIn("deep/file9: is missing", self.differences())
        self.assertIn("deep/filf: should not be there", self.differences())

    def test_every_chance_change(self):
        for seed in range(25):
            shutil.rmtree(self.copy)
            subprocess.run(["cp", "-a", "--", self.original, self.copy], check=True)
            changed = tamper.change(self.copy, random.Random(seed))
            self.assertTrue(any(line.startswith(changed + ": ") for line in self.differences()),
                            f"seed {seed}: {changed}")


class Stripes(unittest.TestCase):
    def test_two_letters_are_mixed(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in (("whole", b"a" * 9000), ("empty", b""), ("mixed", b"a" * 8999 + b"b")):
                with open(f"{folder}/{name}", "wb") as file:
                    file.write(text)
            self.assertEqual(foreign_writers.mixed_in(folder), ["mixed"])


unittest.main(verbosity=1)
PYTHON
