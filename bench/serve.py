#!/usr/bin/env python3
"""Measures a served tree beside bindfs, which mirrors a folder without any tree: both show one folder in memory, in turns, in one run.

Usage: serve.py BUILD_FOLDER [--rounds N] [--prefer] [WORD...]   only the rows with one of the words

Needs root, /dev/fuse, bindfs and git; the row "status" needs "clone". With --prefer the scheduler prefers the servers and this program
to other work. Each row has the best time of all rounds, which other work on the machine has disturbed least, the ratio of both, and
that of the servers' processor times: below 1 the tree is faster.
"""
import argparse
import contextlib
import os
import pathlib
import random
import shutil
import subprocess
import tempfile
import time

MIB = 1 << 20


def call(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)


@contextlib.contextmanager
def shown(build, kind, disk, view):
    if kind == "qvres":
        call(build / "tools/qvres/qvres", "--mount", f"/D={disk}", "serve", "/D", view)
    else:
        call("bindfs", disk, view)
    try:
        yield view
    finally:
        call("fusermount3", "-u", view)


def server_of(view):
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if str(view) in (process / "cmdline").read_text():
                return process
    raise LookupError(f"no process serves {view}")


def processor_time(server):
    return sum(int((task / "schedstat").read_text().split()[0]) for task in (server / "task").iterdir()) / 1e9


def prefer(process):
    (process / "autogroup").write_text("-19")


class Room:
    """What the rows work on: made on the disk, before anything is measured."""

    def __init__(self, disk):
        self.disk = disk
        self.block = os.urandom(MIB)

    def many_files(self):
        for folder in range(1000):
            path = self.disk / f"many/{folder // 40}/{folder}"
            path.mkdir(parents=True)
            for name in range(100):
                (path / f"{name}.txt").touch()

    def repository(self):
        path = self.disk / "origin"
        for number in range(5000):
            file = path / f"{number // 100}/{number}.txt"
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(f"{number}\n" * 20)
        for command in (["init", "-q"], ["add", "."], ["-c", "user.name=a", "-c", "user.email=a@b", "commit", "-qm", "all"]):
            call("git", "-C", path, *command)

    def big_file(self):
        with open(self.disk / "big", "wb") as file:
            for _ in range(1024):
                file.write(self.block)


def write_big(room, view):
    with open(view / "written", "wb", buffering=0) as file:
        for _ in range(1024):
            file.write(room.block)


def read_big(room, view):
    with open(view / "big", "rb", buffering=0) as file:
        while file.read(MIB):
            pass


def read_random(room, view):
    file = os.open(view / "big", os.O_RDONLY)
    os.posix_fadvise(file, 0, 0, os.POSIX_FADV_RANDOM)
    generator = random.Random(1)
    for _ in range(20000):
        os.pread(file, 4096, generator.randrange(262144) * 4096)
    os.close(file)


def create(room, view):
    folder = view / "created"
    folder.mkdir()
    for number in range(10000):
        os.close(os.open(folder / str(number), os.O_CREAT | os.O_WRONLY))


def stat_all(room, view):
    for number in range(10000):
        os.stat(view / "created" / str(number))


def unlink(room, view):
    for number in range(10000):
        os.unlink(view / "created" / str(number))
    (view / "created").rmdir()


def find(room, view):
    call("find", view / "many", "-name", "*.none")


def find_long(room, view):
    call("find", view / "many", "-size", "+1M")


def clone(room, view):
    call("git", "clone", "-q", room.disk / "origin", view / "clone")


def status(room, view):
    call("git", "-C", view / "clone", "status")


# What is shown anew for each row has nothing in the kernel's caches.
ROWS = [("write 1 GiB", write_big), ("read 1 GiB", read_big), ("20,000 random reads of 4 KiB", read_random),
        ("create 10,000 files", create), ("stat them", stat_all), ("unlink them", unlink),
        ("find by name over 100,000 files", find), ("find by size over 100,000 files", find_long),
        ("git clone of 5,000 files", clone), ("git status of them", status)]


def measure(build, room, view, options, rows):
    times = {(name, kind): [] for name, _ in rows for kind in ("qvres", "bindfs")}
    for number in range(options.rounds):
        for kind in ("qvres", "bindfs") if number % 2 == 0 else ("bindfs", "qvres"):
            for name, work in rows:
                with shown(build, kind, room.disk, view):
                    server = server_of(view)
                    if options.prefer:
                        prefer(server)
                        prefer(pathlib.Path("/proc/self"))
                    start, used = time.perf_counter(), processor_time(server)
                    work(room, view)
                    times[name, kind].append((time.perf_counter() - start, processor_time(server) - used))
            (room.disk / "written").unlink(missing_ok=True)
            shutil.rmtree(room.disk / "clone", ignore_errors=True)
            shutil.rmtree(room.disk / "created", ignore_errors=True)
    return times


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--prefer", action="store_true")
    parser.add_argument("words", nargs="*")
    options = parser.parse_intermixed_args()
    rows = [row for row in ROWS if not options.words or set(options.words) & set(row[0].split())]
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        room = Room(pathlib.Path(folder, "disk"))
        view = pathlib.Path(folder, "view")
        room.disk.mkdir()
        view.mkdir()
        room.big_file()
        room.many_files()
        room.repository()
        times = measure(options.build.resolve(), room, view, options, rows)
    print("| work | served | bindfs | ratio | ratio of processor time |\n|---|---|---|---|---|")
    for name, _ in rows:
        (served, used), (other, used_by_other) = ([min(kept) for kept in zip(*times[name, kind])] for kind in ("qvres", "bindfs"))
        print(f"| {name} | {served:.2f} s | {other:.2f} s | {served / other:.2f} | {used / used_by_other:.2f} |", flush=True)


if __name__ == "__main__":
    main()
