#!/usr/bin/env python3
"""Counts the system calls of operations: check_syscalls.py PROBE. Exit status 77 where processes may not be traced."""
import pathlib
import subprocess
import sys
import tempfile

# An open is the open itself, the look that refuses what is no regular file, and the lock of the share mode; no name is looked at twice.
EXPECTED = {
    "open": ["openat", "fstat", "flock", "pread64", "close"],
    "exists": ["stat"],
    "attributes": ["statx"],
    "list": ["openat", "fstat", "getdents64", "getdents64", "close"],
    "list-attributes": ["openat", "fstat", "getdents64"] + ["statx"] * 10 + ["getdents64", "close"],
}
SAME = {"newfstatat": "stat", "fstat64": "fstat"}


def calls(probe, folder, operation):
    trace = folder / "trace"
    subprocess.run(["strace", "-o", str(trace), probe, str(folder), operation], check=True)
    lines = trace.read_text().splitlines()
    marks = [i for i, line in enumerate(lines) if line.startswith("write(-1,")]
    names = []
    for line in lines[marks[0] + 1:marks[1]]:
        name = line.split("(")[0]
        if name == "newfstatat" and '""' in line:
            name = "fstat"
        # memory of the allocator is no call of ours
        if name not in ("brk", "mmap", "munmap"):
            names.append(SAME.get(name, name))
    return names


def main(probe):
    if subprocess.run(["strace", "-o", "/dev/null", "true"], stderr=subprocess.DEVNULL).returncode != 0:
        print("processes may not be traced here")
        return 77
    wrong = 0
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "file").write_bytes(b"x" * 4096)
        (folder / "list").mkdir()
        for i in range(10):
            (folder / "list" / f"file{i}").write_bytes(b"")
        for operation, expected in EXPECTED.items():
            found = calls(probe, folder, operation)
            print(f"{operation}: {' '.join(found)}")
            if found != expected:
                print(f"  expected: {' '.join(expected)}")
                wrong += 1
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
