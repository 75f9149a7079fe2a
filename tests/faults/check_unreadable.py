#!/usr/bin/env python3
"""What another user may not read or write is reported as such: check_unreadable.py QVRES PROBE. Exit status 77 without root."""
import os
import pathlib
import subprocess
import sys
import tempfile

NOBODY = 65534
QVRES, PROBE = (os.path.abspath(program) for program in sys.argv[1:3])
DENIED = "Permission denied"

# Below A: readable/a, z, locked (a file without any bit), secret/b (a folder without any bit), closed/x (a folder that may be
# listed, not entered), blind/x (one that may be entered and written, not listed), shut/x (one that may not be changed), mem (a
# link to a file that opens and cannot be read). Below B, on another file system: blind/x.
# Command, exit status, what standard output and standard error hold, and paths that are there afterwards ("!": that are not, "=":
# with these permission bits).
CASES = [
    ("ls -R /A", 1, ["/A/readable/a", "/A/z"], ["/A/secret", "/A/blind", DENIED], []),
    ("ls -l /A/closed", 1, [], ["/A/closed", DENIED], []),
    ("which /A/locked", 1, ["label:   unknown"], ["/A/locked", DENIED], []),
    ("ls /A/secret", 1, [], ["/A/secret", DENIED], []),
    ("copy /A/ /B", 1, [], ["/A/secret", "/A/locked", DENIED], ["B/readable/a", "B/z", "!B/locked"]),
    ("clear /A", 1, [], [DENIED], ["A/secret/b", "!A/readable/a", "!A/z"]),
    ("rmdir --clear /A/secret", 1, [], ["/A/secret", DENIED], ["A/secret/b"]),
    ("rmdir /A/secret", 1, [], ["/A/secret"], ["A/secret/b"]),
    *((command, 1, [], ["/A/locked", DENIED], []) for command in ("cat /A/locked", "xini get /A/locked k")),
    *((command + " /A/closed/x", 1, [], ["/A/closed/x", DENIED], [])
      for command in ("cat", "stat", "exists", "meta", "label", "check", "rm", "backup", "done", "file")),
    *((command, 1, [], [DENIED], ["A/z", "A/closed/x"])
      for command in ("cp /A/closed/x /A/y", "mv /A/closed/x /A/y", "cp /A/z /A/closed/y", "mv /A/z /A/closed/x",
                      "cp /A/z /A/locked", "put /A/closed/y", "copy /A/z /A/closed")),
    # The folder of the target cannot be opened to be synced: its whole file system is.
    *(("mv /A/z " + target, 0, [], [], ["!A/z", target[1:]]) for target in ("/A/blind/z", "/B/blind/z")),
    # Only in place could it be written; what cannot be read changes nothing.
    ("cp /A/mem /A/shut/x", 1, [], ["Input/output error"], ["A/shut/x=644"]),
    ("rename /A/secret new", 0, [], [], ["A/new/b", "!A/secret"]),
    # What climbs to a mount point, or out of it, is refused as the mount point is.
    ("rmdir --clear /A/readable/..", 1, [], ["/A"], ["A/z"]),
    ("clear /A/readable/../..", 1, [], ["/"], ["A/z"]),
    ("PROBE empty /A/secret", 1, [], [DENIED], []),
]


def make_box(roots):
    for root, name in zip(roots, "AB"):
        for path, mode in (("readable/a", 0o755), ("secret/b", 0), ("closed/x", 0o644), ("blind/x", 0o333), ("shut/x", 0o555)):
            file = pathlib.Path(root, name, path)
            if name == "B" and path != "blind/x":
                continue
            file.parent.mkdir(parents=True)
            file.write_text("content")
            os.chown(file, NOBODY, NOBODY)
            os.chown(file.parent, NOBODY, NOBODY)
            file.parent.chmod(mode)
        os.chown(os.path.join(root, name), NOBODY, NOBODY)
        os.chmod(root, 0o755)
    os.symlink("/proc/self/mem", os.path.join(roots[0], "A/mem"))
    for file, mode in (("locked", 0), ("locked.meta", 0), ("z", 0o644)):
        path = pathlib.Path(roots[0], "A", file)
        path.write_text("content")
        path.chmod(mode)
        os.chown(path, NOBODY, NOBODY)


def problems(case, roots):
    command, status, output, errors, paths = case
    words = command.split()
    folders = [os.path.join(roots[0], "A"), os.path.join(roots[1], "B")]
    program = [PROBE, *folders, folders[1], *words[1:]] if words[0] == "PROBE" else [
        QVRES, "--mount", "/A=" + folders[0], "--mount", "/B=" + folders[1], *words]
    done = subprocess.run(program, capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL, cwd="/", user=NOBODY,
                          group=NOBODY, extra_groups=[], env={"HOME": "/nonexistent"})
    if done.returncode != status:
        yield "exit status %d" % done.returncode
    yield from ("no %s in the output %r" % (word, done.stdout) for word in output if word not in done.stdout)
    yield from ("no %s in the message %r" % (word, done.stderr) for word in errors if word not in done.stderr)
    for path in paths:
        plain, _, bits = path.lstrip("!").partition("=")
        file = os.path.join(roots["AB".index(plain[0])], plain)
        if os.path.lexists(file) == path.startswith("!"):
            yield "%s is %s" % (plain, "there" if path.startswith("!") else "missing")
        elif bits and os.stat(file).st_mode & 0o777 != int(bits, 8):
            yield "%s has the bits %o" % (plain, os.stat(file).st_mode & 0o777)


def main():
    if os.getuid() != 0:
        print("another user needs root")
        return 77
    failed = False
    for case in CASES:
        with tempfile.TemporaryDirectory(dir="/dev/shm") as memory, tempfile.TemporaryDirectory() as disk:
            make_box([memory, disk])
            for problem in problems(case, [memory, disk]):
                print("%s: %s" % (case[0], problem))
                failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
