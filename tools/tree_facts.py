# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
"""What a tree of files is, read without any code of the product, and how two of them differ."""

import collections
import errno
import fcntl
import hashlib
import os
import stat
import struct

BLOCK = 4096
PIECE = 256 * BLOCK
ZEROS = bytes(PIECE)
GET_FLAGS = 0x80086601
# i a d A S D C c m j t T x P s u: those that snapwheel(8) names as kept.
KEPT_FLAGS = 0xFF | 0x400 | 0xC000 | 0x30000 | 0x800000 | 0x2000000 | 0x20000000
KINDS = {stat.S_IFREG: "file", stat.S_IFDIR: "folder", stat.S_IFLNK: "link", stat.S_IFIFO: "FIFO",
         stat.S_IFSOCK: "socket", stat.S_IFCHR: "character device", stat.S_IFBLK: "block device"}


def digest_of(file, size):
    """Of the contents: every block that is not all zeros, and where it stands. Holes are zeros."""
    digest = hashlib.blake2b(digest_size=16)
    place = 0
    while place < size:
        try:
            place = os.lseek(file, place, os.SEEK_DATA) // BLOCK * BLOCK
            end = os.lseek(file, place, os.SEEK_HOLE)
        except OSError as error:
            if error.errno == errno.ENXIO:  # Nothing but a hole is left.
                break
            raise
        while place < end:
            piece = os.pread(file, PIECE, place)
            if not piece:
                return digest.hexdigest()
            if piece != ZEROS[:len(piece)]:
                for start in range(0, len(piece), BLOCK):
                    block = piece[start:start + BLOCK]
                    if block != ZEROS[:len(block)]:
                        digest.update(struct.pack("<Q", place + start) + block)
            # A piece that ends within a block is the last one.
            place += len(piece)
    return digest.hexdigest()


def read_attributes(folder, name):
    """Those of an item in an open folder, access control lists and capabilities among them."""
    path = b"/proc/self/fd/%d/%s" % (folder, name)
    return {key: os.getxattr(path, key, follow_symlinks=False)
            for key in os.listxattr(path, follow_symlinks=False)}


def flags_of(file):
    try:
        return struct.unpack("l", fcntl.ioctl(file, GET_FLAGS, bytes(8)))[0] & KEPT_FLAGS
    except OSError:
        return 0


def item_facts(folder, name, status, with_flags):
    """A dictionary: only what is the same in every true copy."""
    kind = stat.S_IFMT(status.st_mode)
    facts = {"kind": KINDS[kind], "mode": oct(stat.S_IMODE(status.st_mode)),
             "owner": (status.st_uid, status.st_gid), "time": status.st_mtime_ns,
             "attributes": read_attributes(folder, name)}
    if kind == stat.S_IFLNK:
        facts["target"] = os.readlink(name, dir_fd=folder)
    if kind in (stat.S_IFCHR, stat.S_IFBLK):
        facts["device"] = (os.major(status.st_rdev), os.minor(status.st_rdev))
    if kind == stat.S_IFREG:
        file = os.open(name, os.O_RDONLY | os.O_NOFOLLOW | os.O_NOATIME, dir_fd=folder)
        try:
            facts["size"] = status.st_size
            facts["contents"] = digest_of(file, status.st_size)
            if with_flags:
                facts["flags"] = hex(flags_of(file))
        finally:
            os.close(file)
    return facts


def facts_of(root, left_out=(), with_flags=False):
    """Relative path (bytes, the root is b"") to the facts of each item; other file systems are not
    entered. `left_out` are names in the root."""
    found, names = {}, collections.defaultdict(list)
    top = os.open(root, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    status = os.fstat(top)
    device = status.st_dev
    found[b""] = item_facts(top, b".", status, False)
    if with_flags:
        found[b""]["flags"] = hex(flags_of(top))
    folders = [(top, b"", iter(sorted(os.listdir(b"/proc/self/fd/%d" % top))))]
    while folders:
        folder, path, rest = folders[-1]
        name = next(rest, None)
        if name is None:
            os.close(folder)
            folders.pop()
            continue
        if not path and os.fsdecode(name) in left_out:
            continue
        below = path + b"/" + name if path else name
        status = os.stat(name, dir_fd=folder, follow_symlinks=False)
        if status.st_dev != device:
            continue
        found[below] = item_facts(folder, name, status, with_flags)
        if stat.S_ISDIR(status.st_mode):
            inner = os.open(name, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW, dir_fd=folder)
            if with_flags:
                found[below]["flags"] = hex(flags_of(inner))
            entries = sorted(os.listdir(b"/proc/self/fd/%d" % inner))
            folders.append((inner, below, iter(entries)))
        elif status.st_nlink > 1:
            names[status.st_ino].append(below)
    for group in names.values():
        for path in group if len(group) > 1 else []:
            found[path]["names"] = group
    return found


def shown(path):
    """A path that no terminal takes amiss."""
    return ascii(os.fsdecode(path))[1:-1] if path else "(the root)"


def differences(expected, found, without=()):
    """A line for each fact that differs; `without` are facts that are not looked at."""
    lines = []
    for path in sorted(expected.keys() | found.keys()):
        if path not in found:
            lines.append(f"{shown(path)}: is missing")
        elif path not in expected:
            lines.append(f"{shown(path)}: should not be there")
        else:
            wanted, there = expected[path], found[path]
            for fact in sorted(wanted.keys() | there.keys()):
                if fact not in without and wanted.get(fact) != there.get(fact):
                    lines.append(f"{shown(path)}: {fact} is {there.get(fact)!r:.200}, "
                                 f"not {wanted.get(fact)!r:.200}")
    return lines


def part(facts, folder):
    """What is in a folder of the tree, and the folder."""
    return {path: item for path, item in facts.items()
            if path == folder or path.startswith(folder + b"/")}
