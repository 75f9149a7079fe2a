"""What a disk may hold after a power cut, worked out from the traced calls of a process.

The model promises only what a program may count on:
- The content of a file is on the disk up to its last fsync (fdatasync: without permission bits, time, owner and attributes).
  What was changed later may be there as it was after each of the changes; content written later may also be zeros or cut off.
- A name (made, linked, renamed, removed) is on the disk after an fsync of its folder. Before that it may have changed or not,
  but changes in one folder happen in order, and a rename between two folders happens in both or in neither.
Calls that failed changed nothing, so a trace with an injected fault is judged like any other.
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


def snapshot(roots):
    """All files and folders below the folders `roots`, by their paths relative to them."""
    found = {}
    for root in roots:
        for folder, folders, files in os.walk(root):
            for name in folders + files:
                path = os.path.join(folder, name)
                found[os.path.relpath(path, root)] = FOLDER if os.path.isdir(path) else read_file(path)
    return found


def read_file(path):
    status = os.lstat(path)
    if os.path.islink(path):
        return File(os.fsencode(os.readlink(path)))
    with open(path, "rb") as file:
        data = file.read()
    note = os.getxattr(path, "user.note") if "user.note" in os.listxattr(path) else None
    return File(data, status.st_mode & 0o7777, status.st_mtime_ns, status.st_uid, note)


class Inode:
    def __init__(self, file, on_disk=True):
        self.versions = [file] if on_disk else [file._replace(data=b"", time=None), file]  # the first is on the disk

    def now(self):
        return self.versions[-1]

    def change(self, **fields):
        self.versions.append(self.now()._replace(**fields))

    def write(self, position, data):
        old = self.now().data.ljust(position, b"\0")
        self.change(data=old[:position] + data + old[position + len(data):], time=None)

    def sync(self, data_only):
        on_disk = self.versions[0]._replace(data=self.now().data) if data_only else self.now()
        self.versions = [on_disk] if on_disk == self.now() else [on_disk, self.now()]

    def states(self):
        now = self.now()
        yield from self.versions[:-1]
        if now.data != self.versions[0].data:
            yield now._replace(data=b"\0" * len(now.data))
            yield now._replace(data=now.data[:len(now.data) // 2])


class Disk:
    """Does traced calls on a snapshot and knows what of them may be lost."""

    def __init__(self, files, roots):
        self.roots = [os.path.realpath(root) for root in roots]
        self.names = {path: Inode(file) for path, file in files.items()}
        self.names_on_disk = dict(self.names)
        self.pending = []  # changes of names, each a map from paths to inodes (None: removed)
        self.open = {}  # descriptor: [inode or path of a folder, position]

    def files(self):
        return {path: inode.now() for path, inode in self.names.items() if inode}

    def states(self):
        """Each possible state as a snapshot. Of several unsynced files one at a time is damaged."""
        for names in orders(self.pending, self.names_on_disk, frozenset()):
            there = {path: inode for path, inode in names.items() if inode and is_reachable(path, names)}
            whole = {path: inode.now() for path, inode in there.items()}
            yield whole
            for inode in {id(inode): inode for inode in there.values()}.values():
                for damaged in inode.states():
                    yield {path: damaged if there[path] is inode else file for path, file in whole.items()}

    def do(self, call):
        if call.result >= 0 and (call.changes_files or call.name in ("openat", "open", "read", "lseek")):
            getattr(self, "do_" + re.sub("^f(?=ch|set|trunc)|at2?$|64$", "", call.name))(call)

    def path(self, path):
        """Relative to its root; None outside of the roots."""
        folder, name = os.path.split(path.rstrip("/"))
        path = os.path.join(os.path.realpath(folder), name)
        return next((path[len(root) + 1:] for root in self.roots if path.startswith(root + "/")), None)

    def inode(self, call, argument=0):
        """Of an open file, or of a path (that may be a descriptor's)."""
        name = call.arguments[argument]
        if re.match(r"\d+<", name) and not (call.name.endswith("at") and call.arguments[1].startswith('"')):
            return self.open[int(name.split("<")[0])][0]
        path = next(call.paths())
        return self.of_descriptor(path) or self.names[self.path(path)]

    def of_descriptor(self, path):
        found = re.match(r"/proc/(?:self|\d+)/fd/(\d+)$", path)
        return self.open[int(found[1])][0] if found else None

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

    def do_open(self, call):
        path = self.path(next(call.paths()))
        inode = self.of_descriptor(next(call.paths())) or self.names.get(path)
        if "O_TMPFILE" in call.line or inode is None and "O_CREAT" in call.line:
            mode = int(call.arguments[-1], 8) & ~0o022
            inode = Inode(File(b"", mode, None, os.getuid()), on_disk=False)
            if "O_TMPFILE" not in call.line:
                self.change_names({path: inode})
        elif "O_TRUNC" in call.line and inode.now().data:
            inode.change(data=b"", time=None)
        is_folder = inode is None or inode.now() == FOLDER
        self.open[call.result] = [path or "." if is_folder else inode, 0]

    def do_write(self, call):
        file = self.open[int(call.arguments[0].split("<")[0])]
        position = len(file[0].now().data) if "O_APPEND" in call.line else file[1]
        file[0].write(position, bytes_of(call.arguments[1])[:call.result])
        file[1] = position + call.result

    def do_pwrite(self, call):
        self.inode(call).write(int(call.arguments[3]), bytes_of(call.arguments[1])[:call.result])

    def do_read(self, call):
        self.move_on(call, 0)

    def do_lseek(self, call):
        self.open[int(call.arguments[0].split("<")[0])][1] = call.result

    def move_on(self, call, argument):
        """The position of a descriptor before the call, which moves it."""
        file = self.open[int(call.arguments[argument].split("<")[0])]
        file[1] += call.result
        return file[1] - call.result

    def do_copy_file_range(self, call):
        source, target = ([int(n) for n in re.findall(r"\d+", call.arguments[i + 1])] for i in (0, 2))
        start = source[0] if source else self.move_on(call, 0)
        data = self.inode(call, 0).now().data[start:start + call.result]
        self.inode(call, 2).write(target[0] if target else self.move_on(call, 2), data)

    def do_ioctl(self, call):  # FICLONE
        self.inode(call).write(0, self.open[int(call.arguments[2].split("<")[0])][0].now().data)

    def do_truncate(self, call):
        inode, size = self.inode(call), int(call.arguments[-1])
        inode.change(data=inode.now().data[:size].ljust(size, b"\0"), time=None)

    def do_fallocate(self, call):
        if "KEEP_SIZE" not in call.line:
            inode, end = self.inode(call), int(call.arguments[2]) + int(call.arguments[3])
            inode.change(data=inode.now().data.ljust(end, b"\0"), time=None)

    def do_chmod(self, call):
        self.inode(call).change(mode=int(next(a for a in call.arguments[1:] if re.fullmatch("0[0-7]*", a)), 8))

    def do_chown(self, call):
        self.inode(call).change(owner=int(next(a for a in call.arguments[1:] if re.fullmatch(r"-?\d+", a))))

    def do_utimens(self, call):
        seconds = re.findall(r"tv_sec=(\d+), tv_nsec=(\d+)", call.line)
        self.inode(call).change(time=int(seconds[-1][0]) * 10**9 + int(seconds[-1][1]) if seconds else None)

    def do_setxattr(self, call):
        if bytes_of(call.arguments[1]) == b"user.note":
            self.inode(call).change(note=bytes_of(call.arguments[2]))

    def do_link(self, call):
        paths = list(call.paths())
        self.change_names({self.path(paths[-1]): self.of_descriptor(paths[0]) or self.inode(call)})

    def do_rename(self, call):
        source, target = (self.path(path) for path in call.paths())
        moved = {path: inode for path, inode in self.names.items() if path == source or path.startswith(source + "/")}
        self.change_names({**dict.fromkeys(moved), **{target + path[len(source):]: inode for path, inode in moved.items()}})

    def do_unlink(self, call):
        self.change_names({self.path(next(call.paths())): None})

    do_rmdir = do_unlink

    def do_mkdir(self, call):
        self.change_names({self.path(next(call.paths())): Inode(FOLDER)})

    def do_fsync(self, call, data_only=False):
        inode = self.inode(call)
        self.sync_folder(inode) if isinstance(inode, str) else inode.sync(data_only)

    def do_fdatasync(self, call):
        self.do_fsync(call, data_only=True)

    def do_close(self, call):
        self.open.pop(int(call.arguments[0].split("<")[0]), None)


def folders_of(change):
    return {os.path.dirname(path) or "." for path in change}


def is_reachable(path, names):
    folder = os.path.dirname(path)
    return not folder or names.get(folder) is not None and is_reachable(folder, names)


def orders(pending, names, waiting):
    """The maps of names that may be on the disk; in the folders `waiting` an earlier change has not happened yet."""
    if not pending:
        yield names
        return
    yield from orders(pending[1:], names, waiting | folders_of(pending[0]))
    if not folders_of(pending[0]) & waiting:
        yield from orders(pending[1:], {**names, **pending[0]}, waiting)
