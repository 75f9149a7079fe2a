#!/usr/bin/env python3
"""A reader and appender of storage journals, made of docs/formats.md alone.

Usage: journal_peer.py FOLDER append COUNT    records /P8/R0, /P8/R1, ...
       journal_peer.py FOLDER read            prints the entries in order: id, tab, name
"""
import fcntl
import os
import struct
import sys
import time
import zlib


def ofd_lock(descriptor, kind, start, length):
    lock = struct.pack("hhqqi4x", kind, os.SEEK_SET, start, length, 0)
    fcntl.fcntl(descriptor, fcntl.F_OFD_SETLK, lock)


def others_wait(descriptor, kind):
    lock = struct.pack("hhqqi4x", kind, os.SEEK_SET, 1, 2, 0)
    return struct.unpack_from("h", fcntl.fcntl(descriptor, fcntl.F_OFD_GETLK, lock))[0] != fcntl.F_UNLCK


def is_at_path(descriptor, path):
    try:
        return os.path.samestat(os.fstat(descriptor), os.stat(path))
    except FileNotFoundError:
        return False


def take_lock(path, kind):
    yields_until = time.monotonic() + 2
    while True:
        descriptor = os.open(path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o666)
        try:
            if time.monotonic() > yields_until or not others_wait(descriptor, kind):
                ofd_lock(descriptor, kind, 0, 1)
                if is_at_path(descriptor, path):
                    return descriptor
        except BlockingIOError:
            pass
        os.close(descriptor)
        time.sleep(0.001)


def open_journal(path, flags, kind):
    while True:
        journal = os.open(path, flags | os.O_CLOEXEC, 0o666)
        try:
            fcntl.flock(journal, fcntl.LOCK_SH | fcntl.LOCK_NB)
            ofd_lock(journal, kind, 0, 0)
            if is_at_path(journal, path):
                return journal
        except BlockingIOError:
            pass
        os.close(journal)
        time.sleep(0.01)


def append(folder, line):
    block = line + b"*%08X\r\n" % zlib.crc32(line)
    while True:
        lock = take_lock(folder + "\\$QvStorage.lock", fcntl.F_WRLCK)
        journal = open_journal(folder + "/$QvStorage.list", os.O_RDWR | os.O_APPEND, fcntl.F_WRLCK)
        content = os.pread(journal, os.fstat(journal).st_size, 0)
        lines = content[:content.rfind(b"\n") + 1].splitlines(keepends=True)
        while lines and not lines[-1].startswith(b"*"):
            lines.pop()
        sealed = sum(map(len, lines))
        if sealed < len(content):
            os.ftruncate(journal, sealed)
        if os.write(journal, block) != len(block):
            raise OSError("short write")
        os.fsync(journal)
        os.close(journal)
        stays = is_at_path(lock, folder + "\\$QvStorage.lock")
        os.close(lock)
        if stays:
            return


def read(folder):
    lock = take_lock(folder + "\\$QvStorage.lock", fcntl.F_RDLCK)
    journal = open_journal(folder + "/$QvStorage.list", os.O_RDONLY, fcntl.F_RDLCK)
    content = os.pread(journal, os.fstat(journal).st_size, 0)
    os.close(journal)
    os.close(lock)
    if content[11:20] != b";QV5Dir\r\n":
        raise ValueError("bad signature")
    entries, block, is_sealed = {}, b"", False
    for line in content[:content.rfind(b"\n") + 1].split(b"\n")[:-1]:
        line += b"\n"
        is_sealed = line.startswith(b"*")
        if is_sealed and int(line[1:9], 16) != zlib.crc32(block):
            raise ValueError("damaged")
        block = b"" if is_sealed else block + line
        if line.startswith(b"/") and b"?" in line:
            key, _, name = line.rstrip().rpartition(b"?")
            entries[key] = name
        elif line.startswith(b"-"):
            entries.pop(b"/" + line[1:].strip(), None)
    if not is_sealed:
        raise ValueError("torn")
    return entries


if sys.argv[2] == "append":
    for i in range(int(sys.argv[3])):
        append(sys.argv[1], b"/P8/R%d?R%d\r\n" % (i, i))
else:
    for key, name in sorted(read(sys.argv[1]).items()):
        sys.stdout.buffer.write(key + b"\t" + name + b"\n")
