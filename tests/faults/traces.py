"""Runs a program under strace, with or without a fault, and reads what it called.

A trace holds the calls on files below some folders (`roots`), in order. All strings are written as hexadecimal numbers, so that
no byte of a name or of content can be taken for a part of strace's own notation.
"""
import collections
import os
import pathlib
import re
import subprocess
from typing import NamedTuple

CHANGES = """openat open creat write writev pwrite64 pwritev copy_file_range sendfile splice ftruncate truncate fallocate
    chmod fchmod fchmodat chown fchown lchown fchownat utimensat setxattr fsetxattr link linkat symlink symlinkat rename
    renameat renameat2 unlink unlinkat rmdir mkdir mkdirat fsync fdatasync syncfs close ioctl""".split()
LOOKS = """newfstatat stat lstat fstat statx access faccessat faccessat2 readlink readlinkat read pread64 lseek getdents64
    getxattr fgetxattr listxattr flistxattr statfs fstatfs flock fcntl""".split()
LINE = re.compile(r"^(\w+)\((.*)\) += (-?\d+|\?)")
ARGUMENT = re.compile(r'\s*((?:"[^"]*"|\{[^}]*\}|\[[^\]]*\]|<[^>]*>|/\*.*?\*/|[^,"{\[<])+)')


# What strace does to the `count`-th call of that name: "signal=KILL" or "error=EIO".
Fault = collections.namedtuple("Fault", "name count effect")


class Call(NamedTuple):
    name: str
    count: int
    arguments: list
    result: int
    changes_files: bool
    line: str

    def operands(self):
        """The files that the call is about, in order: descriptors as numbers, others as absolute paths."""
        takes_folder = re.search("at2?$", self.name)
        folder = "/"
        for argument, following in zip(self.arguments, self.arguments[1:] + [""]):
            if re.match(r"(AT_FDCWD|\d+)<", argument):
                folder = text(argument[argument.index("<"):])
                if not (takes_folder and following.startswith('"\\x')):
                    yield int(argument.split("<")[0])
            elif argument.startswith('"\\x') and (takes_folder or self.arguments[0].startswith('"')):
                path = os.path.join(folder, text(argument))
                descriptor = re.fullmatch(r"/proc/(?:self|\d+)/fd/(\d+)", path)
                yield int(descriptor[1]) if descriptor else path

    def __str__(self):
        return re.sub(r"(\\x[0-9a-f]{2})+", lambda found: bytes_of(found[0]).decode(errors="replace")[-80:], self.line)


def bytes_of(argument):
    return bytes.fromhex("".join(re.findall(r"\\x([0-9a-f]{2})", argument)))


def text(argument):
    return os.fsdecode(bytes_of(argument))


def may_trace():
    return subprocess.run(["strace", "-o", "/dev/null", "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0


def run(command, trace_file, roots, fault=None, **options):
    """The ended process and its calls on files below `roots`."""
    inject = ["-e", "inject=%s:%s:when=%d" % (fault.name, fault.effect, fault.count)] if fault else []
    strace = ["strace", "-qq", "-y", "-xx", "-s", "10000000", "-e", "signal=none", "-e", "trace=" + ",".join(CHANGES + LOOKS)]
    done = subprocess.run([*strace, *inject, "-o", trace_file, *command], capture_output=True, text=True, check=False,
                          stdin=subprocess.DEVNULL, **options)
    return done, read_trace(pathlib.Path(trace_file).read_text(), roots)


def read_trace(trace, roots):
    """Calls are counted from the start of the process, as strace counts them."""
    wanted = [os.fsencode(str(root)).hex("/").replace("/", "\\x") for root in roots]
    counts, calls, written = collections.Counter(), [], set()
    for line in trace.splitlines():
        found = LINE.match(line)
        if not found:
            continue
        name, text_of_arguments, result = found.groups()
        counts[name] += 1
        # What a program prints may name the folders, too.
        if name in CHANGES + LOOKS and not re.match("[012]<", text_of_arguments) and any(root in line for root in wanted):
            arguments = [argument.strip() for argument in ARGUMENT.findall(text_of_arguments)]
            calls.append(Call(name, counts[name], arguments, int(result) if result != "?" else -1,
                              changes_files(name, text_of_arguments, result, written), line))
    return calls


def changes_files(name, arguments, result, written):
    """`written`: the descriptors that are open for writing."""
    if name in ("open", "openat"):
        changes = re.search("O_WRONLY|O_RDWR|O_CREAT|O_TRUNC", arguments) is not None
        (written.add if changes else written.discard)(result)
        return changes
    if name == "close":
        return arguments.split("<")[0] in written
    return name in CHANGES and (name != "ioctl" or "FICLONE" in arguments)
