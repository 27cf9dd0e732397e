# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""Snapshots of a source that other people's load generators write meanwhile."""

import os
import shutil
import socket
import stat
import subprocess
import sys
import time

import foreign_bench

# Each of these makes, changes or removes items; what they do by itself takes too much room here.
STRESSORS = """access chattr chdir chmod chown copy-file dentry dir dirdeep dirmany fallocate fcntl fiemap
file-ioctl filename flock fpunch fsize fstat getdent handle hdd inode-flags io iomix link locka lockf lockofd
mknod open rename symlink sync-file touch utime verity xattr""".split()
SIZES = """--copy-file-bytes 128m --fallocate-bytes 64m --fiemap-bytes 16m --hdd-bytes 16m
--iomix-bytes 16m --sync-file-bytes 16m --dentries 1000 --dirdeep-inodes 600""".split()
AT_ONCE = 6
STRIPED_FILES, STRIPED_SECONDS = 16, 0.01


class StressNg:
    name, program, package = "stress-ng", "stress-ng", "stress-ng"

    def commands(self, folder, chance):
        chosen = chance.sample(STRESSORS, AT_ONCE)
        words = [word for stressor in chosen for word in ("--" + stressor, "1")]
        yield ["stress-ng", *words, *SIZES, "--temp-path", folder, "--timeout", "1h", "--quiet",
               "--seed", str(chance.randrange(1 << 30))]


class Fio:
    name, program, package = "fio", "fio", "fio"

    def commands(self, folder, chance):
        for engine in ("psync", "mmap"):
            yield ["fio", "--name=" + engine, "--ioengine=" + engine, "--directory=" + folder,
                   "--rw=randrw", "--bsrange=512-64k", "--bs_unaligned=1", "--nrfiles=24",
                   "--filesize=1k-2m", "--file_service_type=random", "--fallocate=keep",
                   "--time_based", "--runtime=1h", "--thinktime=500us", "--output=/dev/null",
                   f"--randseed={chance.randrange(1 << 30)}"]


class Dbench:
    name, program, package = "dbench", "dbench", "dbench"

    def commands(self, folder, chance):
        yield ["dbench", "-D", folder, "-t", "3600", "-c", "/usr/share/dbench/client.txt",
               "--xattr", str(chance.randrange(2, 5))]


class Fsstress:
    name, program, package = "fsstress", "fsstress", None

    def commands(self, folder, chance):
        yield ["fsstress", "-d", folder, "-p", "3", "-n", "100000000",
               "-s", str(chance.randrange(1 << 30))]


class Fsx:
    name, program, package = "fsx", "fsx", None

    def commands(self, folder, chance):
        for number in range(3):
            yield ["fsx", "-q", "-S", str(chance.randrange(1, 1 << 30)), f"{folder}/fsx{number}"]


WRITERS = [StressNg, Fio, Dbench, Fsstress, Fsx]


def write_still(folder, chance):
    """A tree that no writer touches, with an item of each kind."""
    os.makedirs(folder + "/deep/er")
    for number in range(20):
        with open(f"{folder}/deep/file{number}", "wb") as file:
            file.write(chance.randbytes(chance.choice([0, 1, 4096, 70000, 1200000])))
    os.link(folder + "/deep/file1", folder + "/deep/er/second name")
    os.link(folder + "/deep/file1", folder + "/third\nname")
    os.symlink("deep/nothing", folder + "/dangling")
    os.lchown(folder + "/dangling", 1815, 1816)
    os.mkfifo(folder + "/fifo", 0o620)
    os.mknod(folder + "/zero", stat.S_IFCHR | 0o666, os.makedev(1, 5))
    os.mknod(folder + "/block", stat.S_IFBLK | 0o660, os.makedev(250, 300))
    there = os.getcwd()
    os.chdir(folder)
    with socket.socket(socket.AF_UNIX) as made:
        made.bind("socket")
    os.chdir(there)
    with open(os.fsencode(folder) + b"/\xff\xfe" + b"n" * 250, "wb") as file:
        file.truncate(1 << 30)
        os.pwrite(file.fileno(), b"in the middle of a hole", 12345678)
    subprocess.run(["setfacl", "-m", "u:1815:rx,d:g:1816:rwx", folder + "/deep/er"], check=True)
    os.setxattr(folder + "/deep/file2", "user.note", bytes(range(256)))
    os.setxattr(folder + "/deep/file3", "trusted.note", b"")
    subprocess.run(["setcap", "cap_net_raw+ep", folder + "/deep/file4"], check=True)
    os.chown(folder + "/deep/file5", 1815, 1816)
    os.chmod(folder + "/deep/file5", 0o6755)
    os.utime(folder + "/deep/file6", ns=(1, -1234567890))


def stripe(folder, seed):
    """Writes files of one letter each, all of a file by one call, until it is ended."""
    import random
    chance = random.Random(seed)
    sizes = [chance.choice([300000, 1000000, 4000000]) for _ in range(STRIPED_FILES)]
    while True:
        number = chance.randrange(STRIPED_FILES)
        with open(f"{folder}/{number}", "r+b" if os.path.exists(f"{folder}/{number}") else "wb",
                  buffering=0) as file:
            file.write(bytes([chance.randrange(97, 123)]) * sizes[number])
        time.sleep(STRIPED_SECONDS)


def mixed_in(folder):
    """The striped files that hold more than one letter."""
    mixed = []
    for name in os.listdir(folder):
        with open(f"{folder}/{name}", "rb") as file:
            if len(set(file.read())) > 1:
                mixed.append(name)
    return mixed


class Round:
    def __init__(self, bench, writer, number):
        self.bench, self.writer, self.number = bench, writer, number
        self.folder = f"{bench.written}/{number}"
        self.complaints = f"{bench.folder}/complaints"
        os.makedirs(self.folder + "/striped")
        os.mkdir(self.folder + "/written")
        write_still(self.folder + "/still", bench.chance)
        self.still = bench.facts(self.folder + "/still")

    def start(self):
        chance = self.bench.chance
        commands = list(self.writer.commands(self.folder + "/written", chance))
        commands.append([sys.executable, "-B", os.path.abspath(__file__), self.folder + "/striped",
                         str(chance.randrange(1 << 30))])
        with open(self.complaints, "wb") as complaints:
            return [subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                     stderr=complaints, start_new_session=True,
                                     cwd=self.folder + "/written") for command in commands]

    def while_written(self):
        """What stood still is in it, and of the rest nothing is torn that is not named."""
        bench, where = self.bench, f"round {self.number}, while it was written"
        manifest = bench.take(bench.start("snapshot", "--source", "/source", "--json"))
        if manifest is None:
            return
        copy = f"{bench.place_of(manifest)}/written/{self.number}"
        if not bench.tampers:
            torn = {os.path.basename(path) for path in manifest["torn"]
                    if os.path.dirname(path).endswith(f"/written/{self.number}/striped")}
            bench.found(where, [f"striped/{name} is torn and not named"
                                for name in mixed_in(copy + "/striped") if name not in torn])
            unsound = [item["path"] for item in manifest["missing"] if "/still/" in item["path"]]
            bench.found(where, [f"{path} is missing" for path in unsound])
        bench.compare(where, self.still, copy + "/still")

    def while_stopped(self):
        bench = self.bench
        foreign_bench.stop_writers()
        try:
            bench.snapshot_of(f"round {self.number}, while the writers were stopped",
                              bench.facts(bench.source))
        finally:
            foreign_bench.let_write()

    def of_one_instant(self):
        """On btrfs: the writers go on as soon as the engine has its instant."""
        bench = self.bench
        instant = f"{bench.source}/{foreign_bench.INSTANT}/instant"
        frozen = bench.top + "/frozen"
        foreign_bench.stop_writers()
        foreign_bench.must("btrfs", "subvolume", "snapshot", "-r", bench.top + "/live", frozen)
        process = bench.start("snapshot", "--source", "/source", "--json")
        while not os.path.isdir(instant) and process.poll() is None:
            time.sleep(0.0005)
        foreign_bench.let_write()
        bench.snapshot_of(f"round {self.number}, as of one instant", bench.facts(frozen), process)
        foreign_bench.must("btrfs", "-q", "subvolume", "delete", frozen)

    def run(self, seconds):
        bench, started = self.bench, self.start()
        time.sleep(1)
        ways = [self.while_written, self.while_stopped]
        if bench.kind == "btrfs":
            ways.append(self.of_one_instant)
        end = time.monotonic() + seconds
        while time.monotonic() < end or ways:
            # Each way once, then by chance.
            way = ways.pop(0) if ways else bench.chance.choice(
                [self.while_written, self.while_stopped] +
                ([self.of_one_instant] if bench.kind == "btrfs" else []))
            way()
            time.sleep(bench.chance.uniform(0, 0.5))
        ended = [process.args[0] for process in started if process.poll() is not None]
        foreign_bench.end_writers()
        for process in started:
            process.wait()
        with open(self.complaints, encoding="utf-8", errors="replace") as complaints:
            why = complaints.read()[-500:] if ended else ""
        # One that gave up proves less than is told.
        bench.found(f"round {self.number}", [f"{name} ended by itself: {why}" for name in ended])
        bench.last(f"round {self.number}, after the writers")


def try_writer(bench, writer, rounds, seconds):
    for number in range(rounds):
        Round(bench, writer(), number).run(seconds)
        old = f"{bench.written}/{number - 1}"
        if number > 0:
            subprocess.run(["chattr", "-R", "-f", "-i", "-a", old], check=False)
            foreign_bench.must("rm", "-rf", "--", old)


def lacks(writer):
    """Why it cannot be had; nothing when it can."""
    if shutil.which(writer.program):
        return ""
    return f"install {writer.package}" if writer.package else "no package of Debian 12 holds it"


if __name__ == "__main__":
    stripe(sys.argv[1], int(sys.argv[2]))
