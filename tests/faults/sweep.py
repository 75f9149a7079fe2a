#!/usr/bin/env python3
"""The fault sweep: sweep.py QVRES PROBE [PART OF A ROW'S NAME].

Each row of the table is one operation on a box: folders A and B on one file system, C and F on another, mounted at /A, /B and /C;
/A/far is a link to F. The operation runs once without a fault. Its calls on files of the box say what can go wrong:
- The process is killed before each call that changes files.
- Each call fails once: with EIO, and with ENOSPC where it changes files.
- The power goes after each call, in the run without a fault and in each run with a failed call (power_cuts.py).
After each of them the box is compared with what was reported:
- Exit status 0: everything is as the row says, and the output is that of the run without a fault.
- A failure, with a message that names the cause: each file is as before or as after, whole; what is moved is not lost; no other
  file is there. A second run without a fault succeeds.
- A kill: the same, but a hidden temporary file of what is replaced may be left.
- A power cut: the same as a kill; behind exit status 0, what the row promises (Row.promise).

Exit status 77 where processes may not be traced or there are not two file systems.
"""
import contextlib
import errno
import multiprocessing
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
import zlib

from power_cuts import FOLDER, UMASK, Disk, File, snapshot
from traces import Fault, may_trace, run


def two_file_systems():
    """A folder in memory and one on the disk, where they differ."""
    folders = ["/dev/shm", tempfile.gettempdir()]
    return folders if all(map(os.path.isdir, folders)) and len({os.stat(folder).st_dev for folder in folders}) == 2 else None


def takes_attributes(folder):
    with tempfile.NamedTemporaryFile(dir=folder) as file:
        try:
            os.setxattr(file.name, "user.note", b"")
        except OSError:
            return False
    return True


QVRES, PROBE = sys.argv[1:3]
ENVIRONMENT = {"HOME": "/nonexistent", "PATH": os.environ["PATH"]}
FILE_SYSTEMS = two_file_systems()
NOTE = b"a note" if all(map(takes_attributes, FILE_SYSTEMS or [])) else None
BIG = bytes(range(256)) * 2500  # more than two blocks of a copy
OLD_TIME, NEW_TIME = 1_600_000_000_123_456_789, 1_700_000_000_987_654_321
# Permission bits that the umask would not leave.
SOURCE = File(b"the source " * 100, 0o660, NEW_TIME, 1234 if os.getuid() == 0 else os.getuid(), NOTE)
META = File(b"; of the source\n[other]\n  key=value\n[/other]\n", 0o660, NEW_TIME)
TARGET = File(b"the old target " * 200, 0o620, OLD_TIME)
TARGET_META = File(b"[old]\n  target=1\n[/old]\n", 0o620, OLD_TIME)
LONGER_LABEL = b"[resource_label]\n  size=1234567890\n  time=1234567890123\n  crc=1234567890\n[/resource_label]\n"
FIXED_TEXT = re.compile(r'The folder ".*/new" cannot be (created|written to)\.$')
TEMPORARY = re.compile(r"\.([^/]*)(\.[0-9a-f]{16}\.tmp|\.new)$")
MOST_SHOWN = 20  # failures of one row
BYSTANDER = File(b"not part of it", 0o644, OLD_TIME)


def always(_):
    return True


class Row:
    """One operation. `files` and `after` map paths to files, `after` those alone that change (None: removed).

    `between`: what else a file may be until the operation is done; `torn`: and after a kill or a power cut.
    `promise`: what a power cut behind exit status 0 leaves: "done", "kept" (whole and not lost) or None (targets may be damaged).
    `is_kept`: nothing that is moved is lost. `is_open`: a second run still has the same to do.
    `refused`: calls whose failure is one of the operation, also when it lost nothing. `undone`: after a failure all is as before.
    """

    def __init__(self, name, command, files, after, promise=None, between=None, is_kept=always, is_open=always, torn=None,
                 refused=None, undone=False):
        self.name, self.command, self.after, self.promise, self.is_kept = name, command, after, promise, is_kept
        self.between, self.torn, self.is_open, self.refused, self.undone = between or {}, torn or {}, is_open, refused, undone
        self.files = {"A/bystander": BYSTANDER, "A/bystander.meta": BYSTANDER, **files}

    def problems(self, found, is_done, is_cut=False, may_be_damaged=()):
        allowed = {path: [self.old.get(path), *self.between.get(path, [])] for path in self.old.keys() | self.between.keys()}
        for path, files in (self.torn if is_cut else {}).items():
            allowed[path] = allowed.get(path, [None]) + files
        for path, file in self.after.items():
            allowed[path] = [file] if is_done else [file] * (is_cut or not self.undone) + allowed.get(path, [None])
        for path in sorted(found.keys() | allowed.keys()):
            if path in allowed and path not in may_be_damaged:
                if not any(accepts(wanted, found.get(path)) for wanted in allowed[path]):
                    yield "%s is %s" % (path, shown(found.get(path)))
            elif path not in allowed and not (is_cut and TEMPORARY.sub(r"\1", path) in self.old.keys() | self.between.keys()):
                yield "left behind: " + path
        if not self.is_kept(found):
            yield "the source is lost"


def accepts(wanted, found):
    if wanted is None or found is None:
        return wanted is found
    is_equal = [value is None or (value(found[i]) if callable(value) else value == found[i]) for i, value in enumerate(wanted)]
    return all(is_equal)


def shown(file):
    return "missing" if file is None else re.sub(r"data=b['\"](.{40}).*?['\"], mode", r"data=b'\1...', mode", str(file))


def plain(message):
    """On one line, not too long, without the paths of the box."""
    message = re.sub(r"/[^\s\"<]*/faults-[^/]*/|AT_FDCWD<[^>]*>, ", "", message).replace("\n", "\\n")
    message = re.sub(r"#\d+>|\b0x[0-9a-f]+|\b[0-9a-f]{16}\b", "*", message)
    return message if len(message) < 300 else message[:200] + " ... " + message[-90:]


def mounts(*paths):
    """The options that mount the folders of the paths."""
    names = sorted({path[0].replace("F", "A") for path in paths})
    return [word for name in names for word in ("--mount", "/%s={%s}" % (name, name))]


def transfer(verb, source, target, has_meta, has_target, content=SOURCE):
    """A copy or a move between two paths, as the command `verb` does it."""
    is_move = verb == "mv"
    new = content if is_move else content._replace(owner=None, note=None)
    new_meta = META if is_move else META._replace(owner=None)
    files = {source: content, **({source + ".meta": META} if has_meta else {}),
             **({target: TARGET, target + ".meta": TARGET_META} if has_target else {})}
    after = {target: new, **({target + ".meta": new_meta} if has_meta else {})}
    if is_move:
        after.update({source: None, **({source + ".meta": None} if has_meta else {})})
    is_one_disk = target[0] in "AB"

    def is_kept(found):
        places = [(accepts(content, found.get(path)), not has_meta or accepts(META, found.get(path + ".meta")))
                  for path in (source, target)]
        # A rename leaves the content at one place and the sidecar at the other for a moment.
        return all(map(any, zip(*places))) if is_one_disk else any(map(all, places))

    name = "%s %s to %s%s%s%s" % (verb, source, target, ", sidecar" * has_meta, ", target" * has_target,
                                  ", big" * (content is not SOURCE))
    ids = ["/" + path.replace("F/", "A/far/") for path in (source, target)]
    return Row(name, [QVRES, *mounts(source, target), verb, *ids], files, after, "kept" if is_move else None, None,
               is_kept if is_move else always, lambda found: source in found)


def put(has_target):
    files = {"B/new": SOURCE, **({"A/x": TARGET, "A/x.meta": TARGET_META} if has_target else {})}
    after = {"A/x": File(SOURCE.data, 0o620 if has_target else 0o644)}
    return Row("put" + ", target" * has_target, [QVRES, *mounts("A"), "put", "/A/x", "{B}/new"], files, after, "done")


def sidecar(target, has_target):
    files = {"A/x": SOURCE, "A/x.meta": META, target: TARGET, **({target + ".meta": TARGET_META} if has_target else {})}
    return Row("sidecar to %s%s" % (target, ", target" * has_target), [PROBE, *BOX, "sidecar", "/A/x", "/" + target], files,
               {target + ".meta": META._replace(owner=None)})


def label(old, is_stored):
    """`is_stored`: whether exit status 0 says that the label is stored."""
    stored = b"[resource_label]\n  size=%d\n  time=%d\n  crc=" % (len(SOURCE.data), NEW_TIME // 10**6)
    others = old.data.split(b"[resource_label]")[0] if old else b""

    def parses(data):
        """With all that others keep in it, and with one label or none."""
        section = rb"\[resource_label\]\n(  \w+=\d+\n){3}\[/resource_label\]\n"
        return re.fullmatch(re.escape(others) + b"(" + section + b")?", data) is not None

    def is_new(data):
        return parses(data) and stored in data

    command = [PROBE, *BOX, "label"] if is_stored else [QVRES, *mounts("A"), "label"]
    name = "%s label%s" % ("stored" if is_stored else "shown", ", %d bytes of sidecar" % len(old.data) if old else "")
    return Row(name, [*command, "/A/x"], {"A/x": SOURCE, **({"A/x.meta": old} if old else {})},
               {"A/x.meta": File(is_new)} if is_stored else {}, "kept", {"A/x.meta": [File(parses), *([] if old else [None])]})


def marker(old):
    files = {"A/x": SOURCE, **({"A/x.done": File(old, 0o644, OLD_TIME)} if old else {})}
    # What is not "ok" to the byte reads as "fail".
    return Row("marker" + (", %s before" % old.decode() if old else ""), [QVRES, *mounts("A"), "done", "/A/x", "ok"], files,
               {"A/x.done": File(b"ok")}, "done", {"A/x.done": [File(lambda data: data != b"ok")]})


def backup(folder, has_meta):
    """The oldest of two backups makes room for the new one."""
    stamp = time.strftime("%Y-%m-%d.%H-%M-%S", time.localtime(NEW_TIME // 10**9))
    new, oldest, older = ("%s/x.%s.dat" % (folder, name) for name in (stamp, "2001-01-01.00-00-00", "2002-01-01.00-00-00"))
    row = transfer("mv", "A/x.dat", new, has_meta, False)
    files = {**row.files, oldest: TARGET, oldest + ".meta": TARGET_META, older: TARGET._replace(time=OLD_TIME + 10**9)}
    options = mounts("A") + (["--mount", "/A/backup={C}"] if folder == "C" else [])
    return Row("backup to %s%s" % (folder, ", sidecar" * has_meta), [QVRES, *options, "backup", "--keep", "2", "/A/x.dat"], files,
               {**row.after, oldest: None, oldest + ".meta": None}, "kept", None, row.is_kept,
               # A new backup that is there counts, and one more of the old ones goes; a sidecar that is left is not looked for.
               lambda found: row.is_open(found) and new not in found and (oldest in found or oldest + ".meta" not in found))


def first_backup():
    row = backup("A/backup", True)
    files = {path: file for path, file in row.files.items() if not path.startswith("A/backup")}
    after = {path: file for path, file in row.after.items() if file or path in files}
    return Row("first backup", row.command, files, {**after, "A/backup": FOLDER}, "kept", None, row.is_kept, row.is_open)


def tree(name, command, after):
    return Row(name, [QVRES, *mounts("A", "B"), *command], TREE, after, is_open=lambda found: "A/tree/a" in found)


def ask(*command):
    """What changes nothing: the same output or a failure."""
    return Row(" ".join(command), [QVRES, *mounts("A"), *command], {**TREE, "A/x.done": File(b"ok", 0o644, OLD_TIME)}, {})


def mounting(*pairs):
    """A section of a profile."""
    return b"".join(b"  [mount]\n    node=%s\n    path=%s\n  [/mount]\n" % pair for pair in pairs)


def profile(*entries):
    return b"[profile]\n  remote=0\n" + b"".join(entries) + b"[/profile]\n"


def listing(*names):
    return b"[profiles]\n" + b"".join(b"  profile=%s\n" % name for name in names) + b"[/profiles]\n"


def settings(command, changes, is_open=always):
    """A command on a VAR folder with two profiles."""
    texts = {"policy.x-ini": b"; kept\nprofile=LocalProfile\n", "Profiles/profiles.x-ini": listing(b"LocalProfile", b"Other"),
             OWN: profile(mounting((b"/OLD", b"/tmp"))), OTHER: profile()}
    files = {"V/" + path: File(text, 0o600, OLD_TIME) for path, text in texts.items()}
    after = {"V/" + path: data and File(data, 0o600 if path in texts else None) for path, data in changes.items()}
    after.update({os.path.dirname("V/" + path): data and FOLDER for path, data in changes.items() if path.endswith("/profile.x-ini")})
    return Row("settings: " + " ".join(command), [QVRES, "--var", "{V}", *command], files, after, "done",
               {path: [None, File(None)] for path in ("V/.lock", "V/Config", "V/Logs", "V/Tmp", "V/UserData")}, is_open=is_open,
               refused=r"close\(.*\.tmp>")


def setup():
    texts = {"policy.x-ini": b"-repository=\nprofile=LocalProfile\n", "Profiles/profiles.x-ini": listing(b"LocalProfile"),
             OWN: profile(mounting((b"/usr", b"/usr")))}
    folders = ["V/new", "V/new/Profiles", "V/new/Profiles/LocalProfile"]
    anything = ["V/new/" + name for name in (".lock", "Config", "Logs", "Tmp", "UserData", "$cp.tmp")]
    return Row("settings: setup", [QVRES, "--var", "{V}/new", "setup", "/usr"], {},
               {**{"V/new/" + path: File(text) for path, text in texts.items()}, **dict.fromkeys(folders, FOLDER)}, "done",
               {**{path: [None, File(None)] for path in anything}, "V/new/policy.x-ini": [None, File(b"-repository=\n")]})


def registry(old):
    path = "A/registry/user.x-ini"
    files = {path: File(b"; kept\n[key]\nother=1\nvalue=old\n[/]\n", 0o600, OLD_TIME)} if old else {}
    after = b"; kept\n[key]\nother=1\nvalue=new\n[/]\n" if old else b"[key]\n  value=new\n[/key]\n"
    return Row("registry" + ", value before" * old, [PROBE, "registry", "{A}/registry", "new"], files, {path: File(after)}, "done",
               {path + ".lock": [None, File(None)], "A/registry": [None, FOLDER]})


OWN, OTHER = "Profiles/LocalProfile/profile.x-ini", "Profiles/Other/profile.x-ini"


def sealed(*lines):
    block = b"".join(line + b"\r\n" for line in lines)
    return block + b"*%08X\r\n" % zlib.crc32(block)


def records(data):
    """What the sealed part of a journal holds, and whether that is all of it; None and False without a signature."""
    held, block, found, size = {}, b"", {}, 0
    if data[11:20] != b";QV5Dir\r\n":
        return None, False
    for line in data.splitlines(keepends=True):
        if line.startswith(b"*"):
            if line != b"*%08X\r\n" % zlib.crc32(block):
                break
            size += len(block + line)
            block, held = b"", dict(found)
            continue
        block += line
        if line.startswith(b"/"):
            found.update([line.strip().rsplit(b"?", 1)])
    return held, size == len(data)


def holds(wanted):
    return File(lambda data: records(data) == (wanted, True))


def keeps(*wanted):
    """Until its last checkpoint, whatever follows it."""
    return File(lambda data: records(data)[0] in wanted)


def journal(name, operation, old, after, damaged=False, is_kept=always, between=(), torn=(), files=()):
    """`old`: the bytes of the journal, None without one; `after`: what is there when it is done."""
    resources = {"A/s/content/%s" % name: BYSTANDER for name in ("a", "b/inner")}
    old_file = File(old, 0o640, OLD_TIME) if old is not None else None
    # An append cuts first, and one that failed is cut off.
    cut = (old or b"")[:len(TWO_BLOCKS)] if old != BAD else BAD
    between = {LOCK: [None, File(None)], JOURNAL: [File(cut), *([None] if old is None else [File(old, 0o640)]), *between]}
    if damaged:
        between[JOURNAL + ".damaged"] = [None, File(old)]
    return Row("journal: " + name, [PROBE, "journal", "{A}/s", *operation], {**resources, **({JOURNAL: old_file} if old_file else {}), **dict(files)},
               {JOURNAL: after, **({JOURNAL + ".damaged": File(old)} if damaged else {})}, "done", between, is_kept,
               torn={JOURNAL: list(torn)}, refused=r"close\(.*\.list>" if operation[0] == "add" else None, undone=operation[0] == "add")


def append_behind_rename():
    """A rewrite was killed after its rename: the name is not on the disk yet."""
    row = journal("append behind an unsynced rename", ["behind", "/c"], sealed(*HEAD), holds(THREE), between=[holds(TWO)],
                  torn=[keeps(TWO, THREE)], files={NEXT: File(TWO_BLOCKS, 0o640, OLD_TIME)}.items())
    row.after[NEXT] = None
    row.between[NEXT] = [File(always)]  # without the rename, what was appended is in there
    return row


def is_in(data):
    return lambda found: any(found.get(path, File(b"")).data == data for path in (JOURNAL, JOURNAL + ".damaged"))


JOURNAL, LOCK, NEXT = "A/s/$QvStorage.list", "A/s\\$QvStorage.lock", "A/s/next"
HEAD = b":0123ABCD", b";QV5Dir"
TWO_BLOCKS = sealed(*HEAD, b"/A?a") + sealed(b"/B?b")
TWO, THREE, REBUILT = {b"/A": b"a", b"/B": b"b"}, {b"/A": b"a", b"/B": b"b", b"/C": b"c"}, {b"/A": b"/a", b"/B/": b"/b", b"/B/INNER": b"/b/inner"}
TORN = TWO_BLOCKS + b"/C?c\r\n*0"
BAD = sealed(b"/A?a")
JOURNALS = [
    journal("append", ["add", "/c"], TWO_BLOCKS, holds(THREE), torn=[keeps(TWO, THREE)]),
    append_behind_rename(),
    journal("append to a torn one", ["add", "/c"], TORN, holds(THREE), torn=[keeps(TWO, THREE)]),
    journal("append to a new one", ["add", "/c"], None, File(lambda data: set(data.split(sealed(b"/C?c"))) == {b""}),
            torn=[File(lambda data: sealed(b"/C?c") != data)]),
    journal("load a new one", ["load"], None, holds(REBUILT)),
    journal("load a torn one", ["load"], TORN, holds(REBUILT), True, is_in(TORN)),
    journal("cut a torn one", ["cut"], TORN, File(TWO_BLOCKS), torn=[keeps(TWO)]),
    journal("load one with a bad signature", ["load"], BAD, holds(REBUILT), True, is_in(BAD),
            files={JOURNAL + ".damaged": TARGET}.items()),
    journal("merge", ["merge"], TWO_BLOCKS, holds(TWO)),
    journal("load, rewrite and append", ["shorten", "/c"], TWO_BLOCKS, holds(THREE), between=[holds(TWO)], torn=[keeps(TWO, THREE)]),
    Row("journal: verify", [QVRES, "journal", "verify", "{A}/s"], {JOURNAL: File(TWO_BLOCKS, 0o640, OLD_TIME)}, {}),
]


BOX = ["{A}", "{B}", "{C}"]
TREE = {"A/tree/%s" % name: file for name, file in (("a", SOURCE), ("a.meta", META), ("sub/b", TARGET), ("sub/deep/c", TARGET))}
FOLDERS = {"A/tree": FOLDER, "A/tree/sub": FOLDER, "A/tree/sub/deep": FOLDER}
BOTH = (False, True)
ROWS = [
    *(transfer("cp", "A/x", target, has_meta, has_target) for target in ("A/y", "C/x") for has_meta in BOTH
      for has_target in BOTH),
    *(transfer("mv", "A/x", target, has_meta, has_target) for target in ("A/y", "C/x", "F/x") for has_meta in BOTH
      for has_target in BOTH),
    *(transfer(verb, "A/x", "B/x", True, True) for verb in ("cp", "mv")),
    *(transfer(verb, "A/x", "C/x", False, True, SOURCE._replace(data=BIG)) for verb in ("cp", "mv")),
    *(put(has_target) for has_target in BOTH),
    *(sidecar(target, has_target) for target in ("A/y", "C/x") for has_target in BOTH),
    label(META, False),
    *(label(old, True) for old in (None, META, META._replace(data=META.data + LONGER_LABEL))),
    *(marker(old) for old in (None, b"fail", b"ok")),
    *(backup(folder, has_meta) for folder in ("A/backup", "C") for has_meta in BOTH), first_backup(),
    *JOURNALS, *(registry(old) for old in BOTH),
    setup(), settings(["mount", "/NEW", "/usr"], {OWN: profile(mounting((b"/NEW", b"/usr"), (b"/OLD", b"/tmp")))}),
    settings(["unmount", "/OLD"], {OWN: profile()}),
    settings(["profile", "create", "New"], {"Profiles/New/profile.x-ini": profile(),
                                            "Profiles/profiles.x-ini": listing(b"LocalProfile", b"Other", b"New")},
             lambda found: "V/Profiles/New/profile.x-ini" not in found),
    settings(["profile", "add", "LocalProfile", "/usr"], {OWN: profile(mounting((b"/OLD", b"/tmp"), (b"/usr", b"/usr")))}),
    settings(["profile", "select", "Other"], {"policy.x-ini": b"; kept\nprofile=Other\n"}),
    settings(["profile", "remove", "Other"], {OTHER: None, "Profiles/profiles.x-ini": listing(b"LocalProfile")},
             lambda found: "V/" + OTHER in found),
    tree("copy of a tree", ["copy", "--overwrite", "/A/tree/", "/B"],
         {path.replace("A/tree", "B"): file._replace(owner=None, note=None) for path, file in {**TREE, **FOLDERS}.items()}),
    tree("clear", ["clear", "/A/tree"], {path: None for path in TREE.keys() | FOLDERS.keys() - {"A/tree"}}),
    tree("rmdir", ["rmdir", "--clear", "/A/tree"], {path: None for path in TREE.keys() | FOLDERS.keys()}),
    tree("rename", ["rename", "/A/tree", "new"], {**{path: None for path in TREE.keys() | FOLDERS.keys()},
         **{path.replace("tree", "new"): file for path, file in {**TREE, **FOLDERS}.items()}}),
    ask("ls", "-R", "/A"), ask("ls", "-l", "/A"), ask("stat", "/A/tree/a"), ask("exists", "/A/tree/a"), ask("cat", "/A/tree/a"),
    ask("meta", "/A/tree/a"), ask("label", "--weak", "/A/tree/a"), ask("done", "/A/x"),
]


class Box(contextlib.ExitStack):
    """The folders of one run."""

    def __init__(self, row):
        super().__init__()
        self.row = row
        self.roots = [self.enter_context(tempfile.TemporaryDirectory(prefix="faults-", dir=folder)) for folder in FILE_SYSTEMS]
        self.trace = self.enter_context(tempfile.NamedTemporaryFile()).name
        self.folders = {name: os.path.join(self.roots[name in "CF"], name) for name in "ABCFV"}
        self.command = [word.format(**self.folders) for word in row.command]
        for folder in self.folders.values():
            os.mkdir(folder)
        os.symlink(self.folders["F"], self.folders["A"] + "/far")
        for path, file in row.files.items():
            self.make(self.folders[path[0]] + path[1:], file)
        for root in self.roots:  # so that two runs list the same times
            for folder, _, _ in os.walk(root):
                os.utime(folder, (1600000000, 1600000000))

    @staticmethod
    def make(path, file):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        pathlib.Path(path).write_bytes(file.data)
        os.chmod(path, file.mode)
        if file.note:
            os.setxattr(path, "user.note", file.note)
        if file.owner:
            os.chown(path, file.owner, -1)
        os.utime(path, ns=(file.time, file.time))

    def run(self, fault=None):
        return run(self.command, self.trace, self.roots, fault, env=ENVIRONMENT)

    def found(self):
        return snapshot(self.roots)


class Sweep:
    """All faults of one row; `failures` says what was wrong."""

    def __init__(self, row):
        self.row, self.failures, self.runs, self.cuts = row, {}, 0, 0
        with Box(row) as box:
            row.old = box.found()
            self.clean, calls = box.run()
            self.expect("no fault", [] if self.clean.returncode == 0 else ["it fails: " + self.clean.stderr.strip()])
            self.expect("no fault", row.problems(box.found(), is_done=True))
            self.check_model(box, calls)
            self.cut_power("no fault", box, calls, self.clean)
        for call in calls:
            if call.changes_files:
                self.inject(call, "signal=KILL")
                self.inject(call, "error=ENOSPC", errno.ENOSPC)
            # The release of a lock never fails.
            if (call.name != "close" or call.changes_files) and not re.search("SETLK, {l_type=F_UNLCK|LOCK_UN", call.line):
                self.inject(call, "error=EIO", errno.EIO)

    def expect(self, fault, problems):
        for problem in problems:
            # The first problem of each fault shows what is wrong.
            self.failures.setdefault(re.split(", (?:power|then|behind)", fault)[0], "%s: %s" % (plain(fault), plain(problem)))

    def check_model(self, box, calls):
        self.expect("no fault", ["it follows a planted link: " + str(call) for call in calls if "O_CREAT" in call.line
                                 and re.search(r"[0-9a-f]{16}\.tmp", str(call)) and "O_EXCL|O_NOFOLLOW" not in call.line])
        disk = Disk(self.row.old, box.roots)
        for call in calls:
            disk.do(call)
        found, model = box.found(), disk.files()
        self.expect("model", ["%s is %s, should be %s" % (path, shown(model.get(path)), shown(found.get(path)))
                              for path in found.keys() | model.keys() if not accepts(model.get(path), found.get(path))])

    def inject(self, call, effect, error=None):
        self.runs += 1
        fault = f"{effect} at {call}"
        with Box(self.row) as box:
            done, calls = box.run(Fault(call.name, call.count, effect))
            has_hit = any("INJECTED" in call.line for call in calls) if error else done.returncode == -signal.SIGKILL
            self.expect(fault, [] if has_hit else ["the fault did not hit"])
            self.expect(fault, self.report_problems(done, error) if error else [])
            is_refused = self.row.refused and re.match(self.row.refused, str(call)) and error
            self.expect(fault, ["exit 0"] if is_refused and done.returncode == 0 else [])
            # strace fails a close without doing it: the locks stay, so that nothing can be undone.
            is_cut = not error or call.name == "close"
            self.expect(fault, self.row.problems(box.found(), done.returncode == 0, is_cut))
            if error:
                self.cut_power(fault, box, calls, done)
            if done.returncode != 0 and "no fault" not in self.failures:
                self.run_again(fault, box)

    def report_problems(self, done, error):
        if done.returncode == 0 and done.stdout != self.clean.stdout:
            yield "exit 0, but the output is %r" % done.stdout
        elif done.returncode not in (0, 1):
            yield "exit %d" % done.returncode
        elif done.returncode == 1 and os.strerror(error) not in done.stderr and not FIXED_TEXT.search(done.stderr):
            yield "no cause in %r" % done.stderr

    def run_again(self, fault, box):
        """Unless the operation was done."""
        before = box.found()
        if any(self.row.problems(before, is_done=True, is_cut=True)) and self.row.is_open(before):
            fault += ", then a second run"
            done = subprocess.run(box.command, env=ENVIRONMENT, capture_output=True, text=True, check=False)
            self.expect(fault, [done.stderr] if done.returncode else [])
            self.expect(fault, self.row.problems(box.found(), is_done=True, is_cut=True))

    def cut_power(self, fault, box, calls, done):
        """Only from an injected fault on: before it the run is like the one without."""
        disk, row = Disk(self.row.old, box.roots), self.row
        damaged = () if row.promise else row.after
        is_new = fault == "no fault"
        for call in calls:
            disk.do(call)
            is_new = is_new or "INJECTED" in call.line and row.promise
            if is_new and call.changes_files and call.result >= 0 and call.name != "close":
                self.expect_states(f"{fault}, power cut behind {call}", disk, False, damaged)
        if done.returncode == 0:
            self.expect(fault + ", behind exit 0", row.problems(disk.files(), True))
            if row.promise == "done":
                self.expect_states(fault + ", power cut behind exit 0", disk, True)

    def expect_states(self, fault, disk, is_done, damaged=()):
        for state in disk.states():
            self.cuts += 1
            self.expect(fault, self.row.problems(state, is_done, True, damaged))


def sweep(number):
    done = Sweep(ROWS[number])
    return done.row.name, done.runs, done.cuts, done.failures


def main():
    if not may_trace():
        print("processes may not be traced here")
        return 77
    if not FILE_SYSTEMS:
        print("/dev/shm and the folder of temporary files are one file system")
        return 77
    os.umask(UMASK)
    numbers = [i for i, row in enumerate(ROWS) if any(part in row.name for part in sys.argv[3:] or [""])]
    failed = 0
    with multiprocessing.Pool() as pool:
        for name, runs, cuts, failures in pool.imap_unordered(sweep, numbers):
            print("%s: %d faults, %d power cuts, %d failures" % (name, runs, cuts, len(failures)), flush=True)
            print("".join("  %s\n" % failure for failure in list(failures.values())[:MOST_SHOWN]), end="", flush=True)
            failed += len(failures)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
