# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""Changes one item of a tree by chance: who compares it with what it was must find that."""

import os
import stat
import subprocess

import tree_facts


def flip(path, status):
    """One byte, and the times as they were."""
    with open(path, "r+b", buffering=0) as file:
        byte = os.pread(file.fileno(), 1, status.st_size - 1)[0]
        os.pwrite(file.fileno(), bytes([byte ^ 1]), status.st_size - 1)
    os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))


def retarget(path, status):
    target = os.readlink(path)
    os.unlink(path)
    os.symlink(target[:-1] + (b"x" if not target.endswith(b"x") else b"y"), path)
    os.chown(path, status.st_uid, status.st_gid, follow_symlinks=False)
    os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns), follow_symlinks=False)


def ways_of(path, status):
    ways = [("owner", lambda: os.chown(path, status.st_uid + 1, -1, follow_symlinks=False)),
            ("time", lambda: os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns + 1),
                                      follow_symlinks=False))]
    if not stat.S_ISLNK(status.st_mode):
        ways.append(("mode", lambda: os.chmod(path, status.st_mode ^ 0o001)))
    if stat.S_ISREG(status.st_mode):
        ways.append(("attribute", lambda: os.setxattr(path, b"trusted.changed", b"x")))
        ways.append(("end", lambda: os.unlink(path)))
        if status.st_size > 0:
            ways.append(("byte", lambda: flip(path, status)))
    if stat.S_ISLNK(status.st_mode):
        ways.append(("target", lambda: retarget(path, status)))
    return ways


def make_writable(path):
    """The read-only subvolume of btrfs that it is in, if any."""
    while path != "/":
        path = os.path.dirname(path)
        if subprocess.run(["btrfs", "property", "set", "-ts", path, "ro", "false"], check=False,
                          capture_output=True).returncode == 0:
            return


def change(root, chance):
    """The path of what was changed, as tree_facts shows it; none when nothing could be."""
    make_writable(root)
    root = os.fsencode(root)
    paths = [os.path.join(folder, name) for folder, folders, files in os.walk(root)
             for name in folders + files]
    chance.shuffle(paths)
    for path in paths:
        status = os.lstat(path)
        way = chance.choice(ways_of(path, status))
        try:
            way[1]()
        except OSError:
            continue
        return tree_facts.shown(path[len(root) + 1:])
    return None
