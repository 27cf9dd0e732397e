# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""Snapshots of the trees that the test suites of other programs build, which are kept for it."""

import glob
import os
import re
import shutil
import subprocess

import foreign_bench

SECONDS_A_STEP = 900
SOURCES = "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] " \
          "http://deb.debian.org/debian {} main\n"


class Suite:
    """One source package of Debian, built below `home`."""

    options, targets = ["--disable-nls"], []
    at_once = 1

    def __init__(self, home):
        self.built = f"{home}/{self.name}"
        self.log = self.built + ".log"

    def lacks(self, may_build):
        """Why it cannot be had; nothing when it is built."""
        if os.path.exists(self.built + ".built"):
            return ""
        if not may_build:
            return f"it is not built, see {self.log}"
        if not shutil.which("dpkg-source") or not shutil.which("gcc"):
            return "tools/install-dependencies build package"
        with open(self.log, "wb") as log:
            def did(words, folder, **more):
                return subprocess.run(words, cwd=folder, stdin=subprocess.DEVNULL, stdout=log,
                                      stderr=log, check=False, **more).returncode == 0
            if not self.fetch(did):
                return f"apt-get source {self.name} fails, see {self.log}"
            environment = {**os.environ, "CFLAGS": "-O1 -w", "FORCE_UNSAFE_CONFIGURE": "1"}
            make = ["make", "-j", str(os.cpu_count())]
            if not (did(["./configure", *self.options], self.built, env=environment) and
                    did(make, self.built) and
                    all(did([*make, *words], self.built) for words in self.targets)):
                return f"it cannot be built, see {self.log}"
        with open(self.built + ".built", "wb"):
            return ""

    def fetch(self, did):
        """By an apt configuration of its own: that of the host stays as it is."""
        place = self.built + ".apt"
        shutil.rmtree(self.built, ignore_errors=True)
        shutil.rmtree(place, ignore_errors=True)
        for name in ("lists/partial", "cache/archives/partial"):
            os.makedirs(f"{place}/{name}")
        with open("/etc/os-release", encoding="utf-8") as release:
            codename = re.search(r"^VERSION_CODENAME=(\w+)", release.read(), re.MULTILINE)[1]
        with open(place + "/sources.list", "w", encoding="ascii") as sources:
            sources.write(SOURCES.format(codename))
        options = [f"Dir::Etc::SourceList={place}/sources.list", "Dir::Etc::SourceParts=/dev/null",
                   f"Dir::State::Lists={place}/lists", f"Dir::Cache={place}/cache",
                   "APT::Sandbox::User=root"]
        apt = ["apt-get", "-q", *[word for option in options for word in ("-o", option)]]
        if not did([*apt, "update"], place) or not did([*apt, "source", self.name], place):
            return False
        folders = [path for path in glob.glob(f"{place}/{self.name}-*") if os.path.isdir(path)]
        os.rename(folders[0], self.built)
        shutil.rmtree(place)
        return True

    def steps(self):
        """Lists of tests, each list run before one snapshot."""
        tests = self.tests()
        return [tests[start:start + self.at_once] for start in range(0, len(tests), self.at_once)]

    def call(self, words, folder, environment=None, user=None, output=None):
        """(status, output) of what the suite calls in the folder; kept in `output`, in it or not."""
        own = {"PATH": os.environ["PATH"], "TMPDIR": os.environ["TMPDIR"], "HOME": "/nonexistent"}
        as_user = {} if user is None else {"user": user, "group": user, "extra_groups": []}
        with open(output or folder + "/output", "w+b") as output:
            with subprocess.Popen(words, cwd=folder, stdin=subprocess.DEVNULL, stdout=output,
                                  stderr=output, start_new_session=True,
                                  env={**own, **(environment or {})}, **as_user) as process:
                try:
                    status = process.wait(SECONDS_A_STEP)
                except subprocess.TimeoutExpired:
                    process.kill()
                    status = process.wait()
            output.seek(0)
            return status, output.read().decode(errors="replace")


class Rsync(Suite):
    name, targets = "rsync", [["check", "whichtests=00-hello.test"]]
    options = ["--disable-openssl", "--disable-xxhash", "--disable-zstd", "--disable-lz4",
               "--disable-md2man"]

    def tests(self):
        return sorted(os.path.basename(path) for path in glob.glob(self.built + "/testsuite/*.test"))

    def run(self, tests, folder):
        """How many of them passed."""
        passed = 0
        for test in tests:
            _, output = self.call([self.built + "/runtests.sh"], self.built,
                                  {"scratchbase": folder, "preserve_scratch": "yes",
                                   "whichtests": test}, output=folder + "/output")
            passed += output.count("\nPASS ")
        return passed


class Tar(Suite):
    name, targets, at_once = "tar", [["check", "TESTSUITEFLAGS=--list"]], 6

    def tests(self):
        listed = subprocess.run(["sh", "testsuite", "--list"], cwd=self.built + "/tests", check=True,
                                capture_output=True, text=True).stdout
        return re.findall(r"^ +(\d+): ", listed, re.MULTILINE)

    def run(self, tests, folder):
        place = folder + "/tests"
        if not os.path.isdir(place):
            shutil.copytree(self.built + "/tests", place, symlinks=True)
        _, output = self.call(["sh", "testsuite", "-d", *tests], place)
        return len(re.findall(r" ok$", output, re.MULTILINE))


class Coreutils(Suite):
    name, at_once = "coreutils", 15
    # Those whose tests are about trees.
    groups = "chgrp chmod chown cp dd df du install ln ls misc mkdir mv readlink rm rmdir split touch"

    def tests(self):
        return sorted(os.path.relpath(path, self.built) for group in self.groups.split()
                      for path in glob.glob(f"{self.built}/tests/{group}/*.sh"))

    def run(self, tests, folder):
        """Each as root, and one that will not be as an account of its own."""
        programs = sorted(name for name in os.listdir(self.built + "/src")
                          if os.access(f"{self.built}/src/{name}", os.X_OK) and "." not in name)
        environment = {"PATH": f"{self.built}/src:{os.environ['PATH']}", "KEEP": "yes",
                       "srcdir": self.built, "top_srcdir": self.built, "abs_srcdir": self.built,
                       "abs_top_srcdir": self.built, "abs_top_builddir": self.built,
                       "CONFIG_HEADER": self.built + "/lib/config.h", "VERSION": "", "fail": "0",
                       "built_programs": " ".join(programs), "host_os": "linux-gnu",
                       "host_triplet": "x86_64-pc-linux-gnu", "CC": "gcc", "AWK": "awk",
                       "EGREP": "grep -E", "EXEEXT": "", "MAKE": "make", "PACKAGE_VERSION": "",
                       "PERL": "perl", "SHELL": "/bin/sh", "LC_ALL": "C", "TZ": "UTC0"}
        passed = 0
        for test in tests:
            for user in (None, 65534):
                place = f"{folder}/{'root' if user is None else user}"
                if not os.path.isdir(place):
                    os.mkdir(place)
                    os.symlink(self.built + "/src", place + "/src")
                    os.chown(place, user or 0, user or 0)
                status, _ = self.call(["sh", "-c", '. "$0" 9>&2', f"{self.built}/{test}"], place,
                                      environment, user)
                passed += status == 0
                if status != 77:
                    break
        return passed


SUITES = [Rsync, Tar, Coreutils]


def try_suite(bench, suite, rounds):
    """How many of its tests passed: only such a test is known to have built its trees."""
    passed = 0
    folder = bench.written + "/suite"
    os.mkdir(folder)
    os.chmod(folder, 0o755)
    for number in range(rounds):
        for tests in suite.steps():
            passed += suite.run(tests, folder)
            foreign_bench.end_writers()
            bench.leave_mounts()
            where = f"round {number}, after {tests[0]}" + (f" to {tests[-1]}" if tests[1:] else "")
            bench.snapshot_of(where, bench.facts(bench.source))
        bench.last(f"round {number}, at its end")
    if not passed:
        bench.found(suite.name, ["none of its tests passed"])
    return passed
