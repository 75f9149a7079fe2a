"""What a disk may hold after a power cut, worked out from the traced calls of a process.

The model promises only what a program may count on:
- The content of a file is on the disk up to its last fsync (fdatasync: without permission bits, time, owner and attributes).
  What was changed later may be there as it was after each of the changes; content written later may also be zeros or cut off.
- A name (made, linked, renamed, removed) is on the disk after an fsync of its folder. Before that it may have changed or not,
  but changes in one folder happen in order, and a rename between two folders happens in both or in neither.
Calls that failed changed nothing, but a close that fails has lost what was not synced. So a trace with an injected fault is
judged like any other.
"""
import os
import re
from typing import Any, NamedTuple

from traces import bytes_of


class File(NamedTuple):
    """A file as a program sees it; None where it does not matter or cannot be known."""
    data: Any
    mode: Any = None
    time: Any = None
    owner: Any = None
    note: Any = None  # the extended attribute "user.note"


FOLDER = File("a folder")
UMASK = 0o022


def snapshot(roots):
    """All files and folders below the folders `roots`, by their paths relative to them. Links to folders count as folders."""
    found = {}
    for root in roots:
        for folder, folders, files in os.walk(root):
            for path in (os.path.join(folder, name) for name in folders + files):
                found[os.path.relpath(path, root)] = FOLDER if os.path.isdir(path) else read_file(path)
    return found


def read_file(path):
    status = os.stat(path)
    with open(path, "rb") as file:
        note = os.getxattr(path, "user.note") if "user.note" in os.listxattr(path) else None
        return File(file.read(), status.st_mode & 0o7777, status.st_mtime_ns, status.st_uid, note)


class Inode:
    """A file or folder in all versions since it was last synced: the first is on the disk, the last is what processes see."""

    def __init__(self, *versions):
        self.versions = list(versions)

    def now(self):
        return self.versions[-1]

    def change(self, **fields):
        self.versions.append(self.now()._replace(**fields))

    def write(self, position, data):
        old = self.now().data.ljust(position, b"\0")
        self.change(data=old[:position] + data + old[position + len(data):], time=None)

    def cut_off(self, size):
        self.change(data=self.now().data[:size].ljust(size, b"\0"), time=None)

    def sync(self, data_only):
        self.versions = [self.versions[0]._replace(data=self.now().data), self.now()] if data_only else [self.now()]

    def damaged(self):
        """What may be there instead of the last version."""
        yield from self.versions[:-1]
        data, on_disk = self.now().data, self.versions[0].data
        if data != on_disk:
            same = len(os.path.commonprefix([data, on_disk]))
            yield self.now()._replace(data=data[:same] + b"\0" * (len(data) - same))
            yield self.now()._replace(data=data[:(same + len(data)) // 2])


class Disk:
    """Applies traced calls to a snapshot and records what of them may be lost."""

    def __init__(self, files, roots):
        self.roots = [os.path.realpath(root) for root in roots]
        self.names = {path: Inode(file) for path, file in files.items()}
        self.names_on_disk = dict(self.names)
        self.pending = []  # changes of names that are not on the disk, each a map from paths to inodes (None: removed)
        self.open = {}  # descriptor: [inode or path of a folder, position, whether it appends]

    def files(self):
        return {path: inode.now() for path, inode in self.names.items() if inode}

    def states(self):
        """Each possible state as a snapshot. Of several unsynced files one at a time is damaged."""
        for names in orders(self.pending, self.names_on_disk, frozenset()):
            there = {path: inode for path, inode in names.items() if inode and is_reachable(path, names)}
            whole = {path: inode.now() for path, inode in there.items()}
            yield whole
            for inode in {id(inode): inode for inode in there.values()}.values():
                for damaged in inode.damaged():
                    yield {path: damaged if there[path] is inode else file for path, file in whole.items()}

    def path(self, path):
        """Relative to its root; None outside of the roots."""
        folder, name = os.path.split(path.rstrip("/"))
        path = os.path.join(os.path.realpath(folder), name)
        return next((path[len(root) + 1:] for root in self.roots if path.startswith(root + "/")), None)

    def change_names(self, changes):
        self.names.update(changes)
        self.pending.append(changes)

    def sync_folder(self, folder):
        synced = [folder in folders_of(change) for change in self.pending]
        for later in reversed(range(len(synced))):  # what came before in the same folders is on the disk, too
            for earlier in range(later):
                synced[earlier] |= synced[later] and bool(folders_of(self.pending[earlier]) & folders_of(self.pending[later]))
        for change, is_synced in zip(self.pending, synced):
            self.names_on_disk.update(change if is_synced else {})
        self.pending = [change for change, is_synced in zip(self.pending, synced) if not is_synced]

    def moved_on(self, descriptor, count):
        """The position before a call that moves it."""
        inode, position, appends = self.open[descriptor]
        self.open[descriptor][1] = (len(inode.now().data) if appends else position) + count
        return self.open[descriptor][1] - count

    def do(self, call):
        if call.name == "close" and call.result < 0 and call.changes_files:
            inode = self.open[next(call.operands())][0]
            if inode.now().data != inode.versions[0].data:
                inode.change(data=b"lost when it was closed")
        if call.result < 0 or not (call.changes_files or call.name in ("openat", "read", "lseek")):
            return
        arguments, operands = call.arguments, list(call.operands())
        if call.name == "openat" and "O_NOFOLLOW" not in call.line:
            operands = [os.path.realpath(operands[0])]
        # Of a folder that is open, its path.
        inodes = [self.open[each][0] if isinstance(each, int) else self.names.get(self.path(each)) for each in operands]
        inode = inodes[0]
        match call.name:
            case "openat":
                self.do_open(call.result, operands[0], inode, call)
            case "close":
                self.open.pop(operands[0], None)
            case "read":
                self.moved_on(operands[0], call.result)
            case "lseek":
                self.open[operands[0]][1] = call.result
            case "write" | "pwrite64":
                position = int(arguments[3]) if call.name == "pwrite64" else self.moved_on(operands[0], call.result)
                inode.write(position, bytes_of(arguments[1])[:call.result])
            case "copy_file_range":
                source, target = (int(re.search(r"\d+", arguments[i + 1])[0]) if arguments[i + 1] != "NULL" else
                                  self.moved_on(operands[i // 2], call.result) for i in (0, 2))
                inodes[1].write(target, inode.now().data[source:source + call.result])
            case "ioctl":  # FICLONE
                inode.write(0, inodes[1].now().data)
            case "ftruncate" | "truncate":
                inode.cut_off(int(arguments[1]))
            case "fallocate":
                inode.cut_off(max(len(inode.now().data), int(arguments[2]) + int(arguments[3])))
            case "fchmod" | "chmod" | "fchmodat":
                inode.change(mode=int(next(argument for argument in arguments[1:] if re.fullmatch("0[0-7]*", argument)), 8))
            case "fchown" | "chown" | "lchown" | "fchownat":
                owner = int(next(argument for argument in arguments[1:] if re.fullmatch(r"-?\d+", argument)))
                inode.change(owner=owner if owner >= 0 else inode.now().owner)
            case "utimensat":
                times = re.findall(r"tv_sec=(\d+), tv_nsec=(\d+)", call.line)
                inode.change(time=int(times[-1][0]) * 10**9 + int(times[-1][1]) if times else None)
            case "fsetxattr" | "setxattr":
                inode.change(note=bytes_of(arguments[2]) if bytes_of(arguments[1]) == b"user.note" else inode.now().note)
            case "link" | "linkat":
                self.change_names({self.path(operands[1]): inode})
            case "rename" | "renameat" | "renameat2":
                source, target = map(self.path, operands)
                moved = {path: inode for path, inode in self.names.items() if path == source or path.startswith(source + "/")}
                self.change_names({**dict.fromkeys(moved), **{target + path[len(source):]: moved[path] for path in moved}})
            case "unlink" | "unlinkat" | "rmdir":
                self.change_names({self.path(operands[0]): None})
            case "mkdir" | "mkdirat":
                self.change_names({self.path(operands[0]): Inode(FOLDER)})
            case "fsync" | "fdatasync":
                self.sync_folder(inode) if isinstance(inode, str) else inode.sync(call.name == "fdatasync")
            case _:
                raise NotImplementedError(call.line)

    def do_open(self, descriptor, path, inode, call):
        if "O_TMPFILE" in call.line or inode is None and "O_CREAT" in call.line:
            mode = int(call.arguments[-1], 8) & ~UMASK
            inode = Inode(File(b"", mode, None, os.getuid()))
            if "O_TMPFILE" not in call.line:
                self.change_names({self.path(path): inode})
        elif "O_TRUNC" in call.line and inode.now().data:
            inode.cut_off(0)
        self.open[descriptor] = [inode if inode and inode.now() != FOLDER else self.path(path), 0, "O_APPEND" in call.line]


def folders_of(change):
    return {os.path.dirname(path) for path in change}


def is_reachable(path, names):
    folder = os.path.dirname(path)
    return "/" not in path or names.get(folder) is not None and is_reachable(folder, names)


def orders(pending, names, waiting):
    """The maps of names that may be on the disk; in the folders `waiting` an earlier change has not happened yet."""
    if not pending:
        yield names
        return
    yield from orders(pending[1:], names, waiting | folders_of(pending[0]))
    if not folders_of(pending[0]) & waiting:
        yield from orders(pending[1:], {**names, **pending[0]}, waiting)
