#!/usr/bin/env python3
"""A reader and appender of storage journals, made of docs/formats.md alone.

journal_peer.py FOLDER append COUNT records /P8/R0, /P8/R1, ...; journal_peer.py FOLDER read prints "id<TAB>name" lines.
"""
import fcntl
import os
import struct
import sys
import time
import zlib


def flock(kind, start, length):
    return struct.pack("hhqqi4x", kind, os.SEEK_SET, start, length, 0)


def is_at_path(descriptor, path):
    try:
        return os.path.samestat(os.fstat(descriptor), os.stat(path))
    except FileNotFoundError:
        return False


def open_locked(path, flags, take):
    while True:
        descriptor = os.open(path, flags | os.O_CLOEXEC, 0o666)
        try:
            take(descriptor)
            if is_at_path(descriptor, path):
                return descriptor
        except BlockingIOError:
            pass
        os.close(descriptor)
        time.sleep(0.002)


class Storage:
    def __init__(self, folder, kind):
        self.lock_path = folder + "\\$QvStorage.lock"
        yields_until = time.monotonic() + 2

        def take_lock(descriptor):
            waiters = struct.unpack_from("h", fcntl.fcntl(descriptor, fcntl.F_OFD_GETLK, flock(kind, 1, 2)))[0]
            if waiters != fcntl.F_UNLCK and time.monotonic() < yields_until:
                raise BlockingIOError
            fcntl.fcntl(descriptor, fcntl.F_OFD_SETLK, flock(kind, 0, 1))

        def take_journal(descriptor):
            fcntl.flock(descriptor, fcntl.LOCK_SH | fcntl.LOCK_NB)
            fcntl.fcntl(descriptor, fcntl.F_OFD_SETLK, flock(kind, 0, 0))

        self.lock = open_locked(self.lock_path, os.O_RDWR | os.O_CREAT, take_lock)
        self.journal = open_locked(folder + "/$QvStorage.list", os.O_RDWR | os.O_APPEND, take_journal)
        content = os.pread(self.journal, os.fstat(self.journal).st_size, 0)
        self.size = len(content)
        self.lines = content[:content.rfind(b"\n") + 1].splitlines(keepends=True)

    def close(self):
        was_bound = is_at_path(self.lock, self.lock_path)
        os.close(self.journal)
        os.close(self.lock)
        return was_bound


def append(folder, line):
    storage = Storage(folder, fcntl.F_WRLCK)
    while not storage.lines[-1].startswith(b"*"):
        storage.lines.pop()
    sealed = sum(map(len, storage.lines))
    if sealed < storage.size:
        os.ftruncate(storage.journal, sealed)
    os.write(storage.journal, line + b"*%08X\r\n" % zlib.crc32(line))
    os.fsync(storage.journal)
    if not storage.close():
        append(folder, line)


def read(folder):
    storage = Storage(folder, fcntl.F_RDLCK)
    storage.close()
    entries, block = {}, b""
    assert storage.lines[1] == b";QV5Dir\r\n" and storage.lines[-1].startswith(b"*")
    for line in storage.lines:
        if line.startswith(b"*"):
            assert int(line[1:9], 16) == zlib.crc32(block)
            block = b""
            continue
        block += line
        if line.startswith(b"/") and b"?" in line:
            key, _, name = line.rstrip().rpartition(b"?")
            entries[key] = name
        elif line.startswith(b"-"):
            entries.pop(b"/" + line[1:].strip(), None)
    return entries


if sys.argv[2] == "append":
    for i in range(int(sys.argv[3])):
        append(sys.argv[1], b"/P8/R%d?R%d\r\n" % (i, i))
else:
    for key, name in sorted(read(sys.argv[1]).items()):
        sys.stdout.buffer.write(key + b"\t" + name + b"\n")
