#!/usr/bin/env python3
"""Counts the system calls of operations: check_syscalls.py PROBE. Exit status 77 where processes may not be traced."""
import pathlib
import re
import subprocess
import sys
import tempfile

# An open is the open itself, the look that refuses what is no regular file, and the lock of the share mode; no name is looked at twice.
EXPECTED = {
    "open": "openat fstat flock pread64 close",
    "exists": "stat",
    "attributes": "statx",
    "list": "openat getdents64 getdents64 close",
    # the look for a sidecar, the source, an unnamed file that gets its bits, content and time before the name, which must be free
    "copy": "stat openat fstat openat fchmod copy_file_range utimensat linkat close close",
    # and a look for a sidecar that an earlier resource has left
    "copy-between": "stat stat openat fstat openat fchmod copy_file_range utimensat linkat close close",
    # the second of two resources into a new folder: no look for a sidecar, which the listing has not shown, nor for a target; then both folders are closed
    "copy-extended": "openat fstat openat fchmod copy_file_range utimensat linkat close close close close",
    # each folder is opened once; a link is refused by the open itself
    "walk": "openat getdents64 getdents64 close openat getdents64 getdents64 close",
    # that it is a folder and no link, the listing, which shows no sidecar, and one call a file in the open folder
    "clear": "stat stat openat getdents64 getdents64 close openat unlinkat unlinkat unlinkat close",
    "list-attributes": "openat getdents64" + 10 * " statx" + " getdents64 close",
}


def trace(probe, folder):
    (folder / "file").write_bytes(b"x" * 4096)
    (folder / "list").mkdir()
    (folder / "pair").mkdir()
    for name in "12":
        (folder / "pair" / name).write_bytes(b"x" * 4096)
        (folder / ("clear" + name)).mkdir()
        for file in "abc":
            (folder / ("clear" + name) / file).touch()
    (folder / "walk" / "sub").mkdir(parents=True)
    (folder / "walk" / "sub" / "file").touch()
    (folder / "other").mkdir()
    for i in range(10):
        (folder / "list" / f"file{i}").touch()
    subprocess.run(["strace", "-o", folder / "trace", probe, folder], check=True)
    text = re.sub(r'newfstatat\((.*?, "")?', lambda call: "fstat(" if call[1] else "stat(", (folder / "trace").read_text())
    # memory of the allocator is no call of ours
    calls = [line for line in text.splitlines() if not re.match(r"brk|mmap|munmap", line)]
    marked = re.findall(r'^write\(-1, "([a-z-]*)".*\n((?:.*\n)*?)write\(-1, "end"', "\n".join(calls), re.M)
    found = {name: " ".join(re.findall(r"^\w+", lines, re.M)) for name, lines in marked}
    found["copy-extended"] = re.sub(".*? linkat close close ", "", found["copy-extended"], count=1)
    return found


def main(probe):
    if subprocess.run(["strace", "-o", "/dev/null", "true"], stderr=subprocess.DEVNULL).returncode != 0:
        print("processes may not be traced here")
        return 77
    with tempfile.TemporaryDirectory() as folder:
        found = trace(probe, pathlib.Path(folder))
    for operation, calls in EXPECTED.items():
        print(f"{operation}: {found.get(operation)}")
        if found.get(operation) != calls:
            print(f"  expected: {calls}")
    return 0 if found == EXPECTED else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
