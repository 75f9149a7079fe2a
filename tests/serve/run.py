#!/usr/bin/env python3
"""Real programs on a served tree of two mounts: what works on a disk must work there.

  run.py BUILD_FOLDER [WORD...]     only the scenarios whose name holds one of the words

Scenarios without their program are skipped by name. Exit status 77 where nothing can be served at all.
"""
import contextlib
import ctypes
import errno
import fcntl
import filecmp
import json
import mmap
import os
import pathlib
import random
import select
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time
import traceback

LIMIT = 180  # seconds for one command
RENAME_NOREPLACE = 1
PROJECT = pathlib.Path(__file__).resolve().parents[2]
QVRES = pathlib.Path(sys.argv[1]).resolve() / "tools/qvres/qvres"
LIBC = ctypes.CDLL(None, use_errno=True)


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=LIMIT, check=False, **options)
    assert done.returncode == 0, f"{command}: status {done.returncode}\n{done.stdout[-2000:]}{done.stderr[-2000:]}"
    return done.stdout


class Served:
    """The folders a and b at /A and /B, c at /A/In/C, shown in the folder view."""

    def __init__(self, room):
        self.room, self.view = room, room / "view"
        for name in ("a", "b", "c", "view"):
            (room / name).mkdir()
        self.a, self.b = self.view / "A", self.view / "B"

    def start(self, *options, check=True):
        mounts = [f"--mount={id}={self.room / name}" for id, name in (("/A", "a"), ("/B", "b"), ("/A/In/C", "c"))]
        done = subprocess.run([QVRES, *mounts, "serve", *options, self.view], capture_output=True, text=True, timeout=LIMIT, check=False)
        assert not check or (done.returncode, done.stderr) == (0, ""), done.stderr
        return done.stderr

    def stop(self):
        run(QVRES, "serve", "--stop", self.view)
        assert not os.listdir(self.view)

    def server(self):
        return int(os.getxattr(self.view, "user.qvres.server"))


def fails_with(error, call, *arguments):
    try:
        call(*arguments)
    except OSError as failure:
        assert failure.errno == error, f"{call.__name__}{arguments}: {failure}"
        return
    raise AssertionError(f"{call.__name__}{arguments} succeeded")


def rename_to_new(old, new):
    if LIBC.renameat2(-100, os.fsencode(old), -100, os.fsencode(new), RENAME_NOREPLACE) != 0:
        raise OSError(ctypes.get_errno(), "renameat2")


def git(served):
    user = {}
    if os.getuid() == 0:  # what root may do always hides what others may not
        user = {"user": 65534, "group": 65534, "extra_groups": [], "env": {**os.environ, "HOME": "/nonexistent"}}
        served.room.chmod(0o755)
        for folder in ("a", "b"):
            os.chown(served.room / folder, 65534, 65534)
        served.stop()
        served.start("--allow-other")
    repository = served.a / "repository"
    run("git", "init", "-q", repository, **user)
    call = ["git", "-C", repository, "-c", "user.name=a", "-c", "user.email=a@b"]
    for number in range(50):
        (repository / f"{number % 7}.txt").write_text(f"{number}\n" * 100)
        run(*call, "add", ".", **user)
        run(*call, "commit", "-qm", str(number), **user)
    run(*call, "gc", "-q", **user)
    for _ in range(2):  # the second one replaces write-protected packs by themselves
        run(*call, "repack", "-ad", **user)
    run(*call, "fsck", "--strict", **user)
    run("git", "clone", "-q", repository, served.b / "clone", **user)
    assert run("git", "-C", served.b / "clone", "log", "--format=%s", **user).split() == [str(n) for n in reversed(range(50))]
    assert run(*call, "status", "--porcelain", **user) == ""


WRITER = """
import sqlite3, sys
base = sqlite3.connect(sys.argv[1], isolation_level=None)
base.execute("pragma journal_mode=" + sys.argv[2])
base.execute("create table if not exists t(round, number, text)")
for number in range(1000000):
    base.execute("begin immediate")
    for part in range(3):
        base.execute("insert into t values(?, ?, ?)", (int(sys.argv[3]), number, "x" * 3000))
    base.execute("commit")
    print(number, flush=True)
"""


def sqlite(served):
    for mode in ("wal", "delete"):
        path = served.a / f"{mode}.db"
        for number in range(4):
            writer = subprocess.Popen([sys.executable, "-c", WRITER, path, mode, str(number)], stdout=subprocess.PIPE, text=True)
            last = [int(writer.stdout.readline()) for _ in range(20)][-1]
            time.sleep(0.005 * number)  # somewhere inside a later transaction
            writer.kill()
            writer.wait()
            with contextlib.closing(sqlite3.connect(path)) as base:
                assert base.execute("pragma integrity_check").fetchall() == [("ok",)], mode
                parts = dict(base.execute("select number, count(*) from t where round=? group by number", (number,)))
            assert set(range(last + 1)) <= set(parts) and set(parts.values()) == {3}, mode


def snapshot(folder):
    found = {}
    for path in sorted(folder.rglob("*")):
        status = path.stat()
        found[str(path.relative_to(folder))] = (status.st_mode, status.st_mtime_ns, path.is_file() and path.read_bytes())
    return found


def tar_and_rsync(served):
    source = served.room / "source"
    shutil.copytree(PROJECT / "src", source / "src")
    (source / "empty").mkdir(mode=0o700)
    (source / ".hidden file").write_text("x")
    (source / "read-only").write_text("x")
    (source / "read-only").chmod(0o440)
    os.utime(source / "empty", ns=(123456789, 123456789))  # rsync takes times of one second for the same
    wanted = snapshot(source)
    run("tar", "-C", source, "--format=posix", "-cf", served.room / "1.tar", ".")
    (served.a / "tar").mkdir()
    run("tar", "-C", served.a / "tar", "-xf", served.room / "1.tar")
    assert snapshot(served.a / "tar") == wanted
    run("tar", "-C", served.a / "tar", "--format=posix", "-cf", served.b / "2.tar", ".")
    (served.room / "back").mkdir()
    run("tar", "-C", served.room / "back", "-xf", served.b / "2.tar")
    assert snapshot(served.room / "back") == wanted
    if shutil.which("rsync"):
        run("rsync", "-a", f"{source}/", served.b / "rsync")
        run("rsync", "-a", "--delete", f"{served.b}/rsync/", served.room / "back")
        assert snapshot(served.b / "rsync") == wanted == snapshot(served.room / "back")
        assert run("rsync", "-ain", f"{source}/", served.b / "rsync") == ""
    else:
        print("rsync: skipped, not installed")


def dbench(served):
    report = run("dbench", "-t", "20", "-D", served.a, "-c", "/usr/share/dbench/client.txt", "4")
    faults = [line for line in report.splitlines() if "failed" in line and "barrier semaphore" not in line]
    assert "Throughput" in report and not faults, faults


def cmake(served):
    source = served.a / "project"
    source.mkdir()
    (source / "CMakeLists.txt").write_text("project(p CXX)\nadd_library(l SHARED l.cpp)\nadd_executable(e e.cpp)\n"
                                           "target_link_libraries(e l)\n")
    (source / "l.cpp").write_text("int answer() { return 42; }\n")
    (source / "e.cpp").write_text("int answer();\nint main() { return answer() - 42; }\n")
    run("cmake", "-S", source, "-B", served.b / "build")
    run("cmake", "--build", served.b / "build")
    run(served.b / "build/e")
    before = (served.b / "build/e").stat().st_mtime_ns
    run("cmake", "--build", served.b / "build")  # and nothing is out of date
    assert (served.b / "build/e").stat().st_mtime_ns == before


class Handles:
    """One file through several handles and a shared mapping."""

    def __init__(self, path):
        self.path = path
        self.files = [os.open(path, os.O_RDWR | os.O_CREAT) for _ in range(3)]

    def close(self):
        for file in self.files:
            os.close(file)

    def act(self, name, which, offset, data):
        file = self.files[which]
        if name == "write":
            return os.pwrite(file, data, offset)
        if name == "read":
            return os.pread(file, len(data), offset)
        if name == "truncate":
            return os.ftruncate(file, offset) if which else os.truncate(self.path, offset)
        if name == "append":
            with open(self.path, "ab", buffering=0) as appended:
                return appended.write(data)
        if name == "allocate":
            return os.posix_fallocate(file, offset, len(data) + 1)
        if name == "reopen":
            os.close(file)
            self.files[which] = os.open(self.path, os.O_RDWR)
            return os.fstat(file).st_size
        size = os.fstat(file).st_size
        if name == "seek":
            return os.lseek(file, 0, os.SEEK_END), size
        if size == 0:
            return 0
        with mmap.mmap(file, size) as memory:
            start = offset % size
            part = data[: size - start]
            before = bytes(memory[start : start + len(part)])
            if which:
                memory[start : start + len(part)] = part
            return before


def random_operations(served):
    names = ["write"] * 4 + ["read"] * 4 + ["truncate", "append", "allocate", "reopen", "seek", "map", "map"]
    for seed in (1, 2, 3):
        choose = random.Random(seed)
        ours, plain = Handles(served.a / f"random{seed}"), Handles(served.room / f"random{seed}")
        for number in range(10000):
            step = (choose.choice(names), choose.randrange(3), choose.randrange(300000), choose.randbytes(choose.randrange(20000)))
            assert ours.act(*step) == plain.act(*step), f"seed {seed}, operation {number}: {step[:3]}, {len(step[3])} bytes"
        ours.close()
        plain.close()
        assert filecmp.cmp(ours.path, plain.path, shallow=False)
        assert filecmp.cmp(served.room / f"a/random{seed}", plain.path, shallow=False)


def eight_threads(served):
    path, log = served.a / "shared", served.a / "log"
    shared = os.open(path, os.O_RDWR | os.O_CREAT)
    faults = []

    def work(thread):
        try:
            own = os.open(path, os.O_RDWR)
            for number in range(500):
                block = bytes([thread, number % 251]) * 2048
                os.pwrite(shared if number % 2 else own, block, (number * 8 + thread) * 4096)
                if os.pread(own if number % 2 else shared, 4096, (number * 8 + thread) * 4096) != block:
                    faults.append((thread, number))
                line = os.open(log, os.O_WRONLY | os.O_APPEND | os.O_CREAT)
                os.write(line, b"%d-%d\n" % (thread, number))
                os.close(line)
            os.close(own)
        except OSError as failure:
            faults.append((thread, failure))

    threads = [threading.Thread(target=work, args=(number,)) for number in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    os.close(shared)
    assert not faults, faults[:5]
    content = (served.room / "a/shared").read_bytes()
    for number in range(4000):
        assert content[number * 4096 : number * 4096 + 4096] == bytes([number % 8, number // 8 % 251]) * 2048, number
    assert sorted(log.read_text().split()) == sorted(f"{t}-{n}" for t in range(8) for n in range(500))


def names(served):
    a, b, disk = served.a, served.b, served.room / "a"
    assert sorted(os.listdir(served.view)) == ["A", "B"] and os.listdir(a) == ["In"] and os.listdir(a / "In") == ["C"]
    for name in (served.view / "x", a / "In/x"):
        fails_with(errno.EROFS, os.mkdir, name)
        fails_with(errno.EROFS, name.write_text, "x")
    assert os.statvfs(a / "In").f_bavail == 0
    for mount in (a, a / "In", a / "In/C"):
        fails_with(errno.EBUSY, os.rmdir, mount)
        fails_with(errno.EBUSY, os.rename, mount, mount.parent / "other")
    (a / "in/c/x").write_text("one file in two spellings")
    assert (a / "In/C/x").read_text() == (served.room / "c/x").read_text()
    fails_with(errno.EINVAL, (a / "a:b").write_text, "x")
    fails_with(errno.EPERM, (a / "x.meta").write_text, "x")
    (a / "f").write_text("old")
    fails_with(errno.EPERM, os.link, a / "f", a / "g")
    fails_with(errno.EPERM, os.symlink, a / "f", a / "g")
    fails_with(errno.EPERM, os.chown, a / "f", 1, 1)
    os.chown(a / "f", os.getuid(), -1)
    fails_with(errno.ENOTSUP, os.setxattr, a / "f", "user.x", b"1")
    # The sidecar goes where its resource goes, and is never seen.
    fails_with(errno.ENODATA, os.getxattr, a / "f", "user.qvres.crc")
    run(QVRES, f"--mount=/A={disk}", "label", "/A/f")
    crc = os.getxattr(a / "f", "user.qvres.crc")
    os.rename(a / "f", a / "g")
    assert os.getxattr(a / "g", "user.qvres.crc") == crc and (disk / "g.meta").exists() and not (disk / "f.meta").exists()
    os.rename(a / "g", b / "g")
    assert os.getxattr(b / "g", "user.qvres.crc") == crc and os.listdir(b) == ["g"]
    assert os.getxattr(b / "g", "user.qvres.file") == os.fsencode(served.room / "b/g")
    assert os.getxattr(b / "g", "user.qvres.id") == b"/B/g" and os.listxattr(b / "g") == []
    # Files that are open while their names go.
    (a / "target").write_text("target")
    with open(a / "target", "r+") as replaced, open(b / "g", "r+") as removed:
        (a / "new").write_text("new")
        os.rename(a / "new", a / "target")
        os.unlink(b / "g")
        with open(f"/proc/self/fd/{removed.fileno()}") as again:
            assert again.read()
        removed.write("still there")
        removed.seek(0)
        os.ftruncate(removed.fileno(), 5)
        assert (replaced.read(), removed.read(), os.fstat(removed.fileno()).st_nlink) == ("target", "still", 0)
    assert (a / "target").read_text() == "new" and not (served.room / "b/g.meta").exists()
    fails_with(errno.EXDEV, os.rename, a / "target", b / "target")  # nothing but a sidecar needs the library's move
    # A folder and a large file are copied by the program, and the sidecars follow, to the last target when a move was given up.
    (a / "folder").mkdir()
    for moved, copy in (("folder/large", "large"), ("folder", "folder/large")):
        with open(disk / "folder/large", "wb") as file:
            file.truncate(17 << 20)
        run(QVRES, f"--mount=/A={disk}", "label", "/A/folder/large")
        crc = os.getxattr(a / "folder/large", "user.qvres.crc")
        fails_with(errno.EXDEV, os.rename, a / "folder", b / "folder")
        if moved != "folder":
            shutil.copytree(a / "folder", b / "folder")
        run("mv", a / moved, b)
        assert os.getxattr(b / copy, "user.qvres.crc") == crc and not list(disk.rglob("*.meta"))
        shutil.rmtree(b / "folder")
    os.unlink(b / "large")
    (a / "other").write_text("other")
    fails_with(errno.EEXIST, rename_to_new, a / "other", a / "target")
    rename_to_new(a / "other", a / "third")
    assert sorted(os.listdir(a)) == ["In", "target", "third"] and (a / "third").read_text() == "other"
    # Folders.
    for folder in ("d1", "d2/full"):
        (a / folder).mkdir(parents=True)
    fails_with(errno.EXDEV, os.rename, a / "d1", a / "d2/d1")
    fails_with(errno.EXDEV, os.rename, a / "d1", b / "d1")
    fails_with(errno.ENOTEMPTY, os.rename, a / "d1", a / "d2")
    os.chdir(a / "d2/full")
    os.rename(a / "d2", a / "d1")
    assert os.getcwd() == str(a / "d1/full")
    os.chdir("/")
    # Links are followed by the program that meets them, and lead to the tree where they can.
    (disk / "outside").symlink_to(served.room)
    (disk / "inside").symlink_to(served.room / "b")
    (disk / "climbing").symlink_to("../b/kept")
    (disk / "self").symlink_to(a / "d1/self")
    (disk / "d1/nowhere").symlink_to("../missing")
    (disk / "d1/self").symlink_to(a / "self")
    (b / "kept").write_text("x")
    texts = {"inside": "../B", "outside": str(served.room), "climbing": "../B/kept", "self": str(a / "d1/self"), "d1/nowhere": "../missing"}
    assert {name: os.readlink(a / name) for name in texts} == texts
    assert (a / "inside/kept").exists() and sorted(os.listdir(a / "d1")) == ["full", "nowhere", "self"]
    fails_with(errno.ELOOP, os.stat, a / "self")
    os.rename(a / "third", a / "self")
    os.rename(a / "climbing", a / "third")
    assert (a / "self").read_text() == "other" and (a / "third").read_text() == "x" and not (disk / "self").is_symlink()
    shutil.rmtree(a / "d1")
    os.unlink(a / "inside")
    assert (b / "kept").exists() and not (disk / "inside").is_symlink()
    # What another opener of the library has for itself does not open.
    (disk / "seen").write_text("made on the disk")
    with open(disk / "seen") as held:
        fcntl.flock(held, fcntl.LOCK_EX)
        fails_with(errno.EACCES, os.open, a / "seen", os.O_RDONLY)
    os.utime(a / "seen", ns=(5, 123456789))
    assert (disk / "seen").stat().st_mtime_ns == 123456789
    # A folder of many names, some of them with attributes, which make no name usable that is no id.
    (disk / "d").mkdir()
    for name in (*range(3000), "no\\id"):
        (disk / f"d/{name}").touch()
    for _ in range(2):
        found = {entry.name: entry.inode() for entry in os.scandir(a / "d")}
        fails_with(errno.EINVAL, os.stat, a / "d/no\\id")
        assert found.pop("no\\id") and found == {str(n): os.stat(a / "d" / str(n)).st_ino for n in range(3000)}
    # A link in the place of a folder above a mount point neither hides the mount nor shows what it leads to.
    served.stop()
    (disk / "In").symlink_to(served.room)
    served.start("--read-only", "/A")
    assert os.listdir(served.view / "In") == ["C"] and (served.view / "In/C/x").exists() and not (served.view / "In/b").exists()
    fails_with(errno.EROFS, (served.view / "x").write_text, "x")


def other_users(served):
    if os.getuid() != 0:
        print("other_users: skipped, needs root")
        return
    served.room.chmod(0o755)
    (served.a / "open").mkdir()
    (served.a / "open").chmod(0o777)
    (served.a / "secret").write_text("x")
    (served.a / "secret").chmod(0o600)
    attempt = "import os,sys; os.setgid(12345); os.setuid(12345); os.umask(0o27); "
    served.stop()
    served.start("--allow-other")
    run(sys.executable, "-c", attempt + "open('own','w').write('x'); os.mkdir('folder')", cwd=served.a / "open")
    for name, bits in (("own", 0o640), ("folder", 0o750)):
        status = (served.room / "a/open" / name).stat()
        assert (status.st_uid, status.st_gid, status.st_mode & 0o7777) == (12345, 12345, bits)
    # Behind the server's back the user's own folder becomes a link to what the user may not see.
    hidden = served.room / "hidden"
    hidden.mkdir(mode=0o700)
    (hidden / "own").write_text("secret")
    run(sys.executable, "-c", attempt + "os.chmod('own', 0o4755); open('own', 'a').write('y')", cwd=served.a / "open")
    assert (served.room / "a/open/own").stat().st_mode & 0o7777 == 0o755
    (served.a / "open").stat()
    (served.room / "a/open").rename(served.room / "a/was")
    (served.room / "a/open").symlink_to(hidden)
    for what in ("open('open/own')", "open('open/new', 'w')", "os.unlink('open/own')", "os.mkdir('open/folder')", "open('secret')"):
        fails = subprocess.run([sys.executable, "-c", attempt + what], cwd=served.a, capture_output=True, text=True, check=False)
        assert "Permission denied" in fails.stderr, what + fails.stderr
    assert os.listdir(hidden) == ["own"]


def full_disk(served):
    if os.getuid() != 0:
        print("full_disk: skipped, needs root")
        return
    disk = served.room / "c"
    run("mount", "-t", "tmpfs", "-o", "size=1m", "tmpfs", disk)
    try:
        (disk / "other").write_bytes(b"x" * (512 << 10))
        file = os.open(served.a / "In/C/file", os.O_RDWR | os.O_CREAT)
        os.ftruncate(file, 1 << 20)
        with mmap.mmap(file, 1 << 20) as memory:
            memory[: 768 << 10] = b"x" * (768 << 10)  # one request, whose first part fits
            fails_with(errno.ENOSPC, memory.flush)
        os.close(file)
    finally:
        served.stop()
        run("umount", disk)
        served.start()


def killed_and_restarted(served):
    file = os.open(served.a / "open", os.O_WRONLY | os.O_CREAT)
    os.write(file, b"x" * 100000)
    os.kill(served.server(), signal.SIGKILL)
    fails_with(errno.ENOTCONN, os.write, file, b"y")
    os.close(file)
    assert "--stop" in served.start(check=False)
    served.stop()
    assert (served.room / "a/open").read_bytes() == b"x" * 100000
    served.start()
    assert (served.a / "open").stat().st_size == 100000
    for end in (lambda: os.kill(served.server(), signal.SIGTERM), lambda: run("fusermount3", "-u", served.view)):
        server = os.pidfd_open(served.server())
        end()
        assert select.select([server], [], [], LIMIT)[0], "the server goes on"
        assert not os.listdir(served.view)
        served.start()
    # A file that is still open is flushed, and is no reason to go on.
    file = os.open(served.a / "open", os.O_RDWR | os.O_APPEND)
    os.write(file, b"y")
    with mmap.mmap(file, 0) as memory:  # and what was only changed in memory is written back
        # Started before the change: a new process closes its copy of the file, which writes it back.
        stop = subprocess.Popen(["sh", "-c", 'sleep 1; exec "$@"', "sh", QVRES, "serve", "--stop", served.view])
        time.sleep(0.3)
        memory[:20000] = b"m" * 20000
        assert stop.wait(LIMIT) == 0
    assert (served.room / "a/open").read_bytes().startswith(b"m" * 20000 + b"x")
    fails_with(errno.ENOTCONN, os.write, file, b"z")
    fails_with(errno.ENOTCONN, os.close, file)
    served.start()
    assert "is already served" in served.start(check=False)
    refused = subprocess.run([QVRES, "--json", "serve", "--stop", served.room], check=False, capture_output=True, text=True)
    assert "nothing is served" in json.loads(refused.stderr)["error"], refused
    assert (served.a / "open").read_bytes().endswith(b"xxy")
    # One that does not answer any more does not keep its folder.
    server = served.server()
    os.kill(server, signal.SIGSTOP)
    # A search for leaks at its end would wait for its thread that asks the server, which nothing but an answer can stop.
    quiet = {**os.environ, "ASAN_OPTIONS": "detect_leaks=0"}
    refused = subprocess.run([QVRES, "serve", "--stop", served.view], check=False, capture_output=True, text=True, timeout=LIMIT, env=quiet)
    os.kill(server, signal.SIGCONT)
    assert refused.returncode == 1 and "did not end in time" in refused.stderr and not os.listdir(served.view), refused
    served.start()
    for mount, folder in ((served.room, "b"), (served.room / "b", "")):
        refused = subprocess.run([QVRES, f"--mount=/R={mount}", "serve", served.room / folder], check=False, capture_output=True, text=True)
        assert refused.returncode == 1 and "which is part of the tree" in refused.stderr, refused


SCENARIOS = [(names, None), (git, "git"), (sqlite, None), (tar_and_rsync, "tar"), (cmake, "cmake"), (random_operations, None),
             (eight_threads, None), (killed_and_restarted, None), (other_users, None), (full_disk, None),
             (dbench, "dbench")]


def perform(scenario):
    with tempfile.TemporaryDirectory() as folder:
        served = Served(pathlib.Path(folder).resolve())
        served.start()
        try:
            scenario(served)
            return True
        except Exception:  # each fault is told, and the other scenarios run
            traceback.print_exc()
            return False
        finally:
            os.chdir("/")
            served.stop()


def main():
    if not os.access("/dev/fuse", os.R_OK | os.W_OK) or not shutil.which("fusermount3"):
        print("skipped: no /dev/fuse, or no fusermount3")
        return 77
    failed = 0
    for scenario, program in SCENARIOS:
        name = scenario.__name__
        if len(sys.argv) > 2 and not any(word in name for word in sys.argv[2:]):
            continue
        if program is not None and shutil.which(program) is None:
            print(f"{name}: skipped, {program} is not installed")
            continue
        start = time.monotonic()
        isWell = perform(scenario)
        failed += not isWell
        print(f"{name}: {'ok' if isWell else 'FAILED'} ({time.monotonic() - start:.1f} s)", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
