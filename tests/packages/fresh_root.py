#!/usr/bin/env python3
"""Makes a root folder that holds some Debian packages and all that they need, and nothing else, copied from this machine.

Usage: fresh_root.py ROOT PACKAGE-OR-DEB... The packages every Debian has (Essential) and the named ones are copied with what they
depend on; of a .deb file only what it depends on. The folder's package database says so, so that dpkg --root refuses whatever
needs more. May be run again to add packages.
"""
import os
import pathlib
import re
import subprocess
import sys

DATABASE = pathlib.Path("/var/lib/dpkg")
LEFT_OUT = re.compile(r"/usr/share/(doc|locale|man|info|icons)/.|/usr/lib/[^/]+/(dri|libLLVM.*)")  # large, and nothing here needs them
FOLDERS = ("bin", "sbin", "lib", "lib32", "lib64", "libx32")


def stanzas(text):
    for stanza in text.split("\n\n"):
        fields = dict(re.findall(r"^([A-Z][\w-]*): (.*)", stanza, re.M))
        if "Package" in fields:
            yield fields, stanza.strip() + "\n"


def installed():
    """By name, and by what each provides: the fields and text of its record."""
    packages, provided = {}, {}
    for fields, stanza in stanzas((DATABASE / "status").read_text()):
        if " installed" in fields["Status"]:
            packages[fields["Package"]] = (fields, stanza)
            for name in re.findall(r"([\w.+-]+)(?: \(.*?\))?(?:, |$)", fields.get("Provides", "")):
                provided.setdefault(name, fields["Package"])
    return packages, provided


def closure(wanted, packages, provided):
    """The named packages and what they depend on; of alternatives the first that this machine has."""
    found = set()
    while wanted:
        name = wanted.pop()
        if name in found:
            continue
        found.add(name)
        fields = packages[name][0]
        wanted += needs(", ".join(fields[key] for key in ("Pre-Depends", "Depends") if key in fields), packages, provided)
    return found


def needs(depends, packages, provided, own=()):
    names = []
    for group in filter(None, depends.split(", ")):
        alternatives = [re.match(r"[\w.+-]+", alternative).group() for alternative in group.split(" | ")]
        if not own or alternatives[0] not in own:
            names.append(next(name if name in packages else provided[name] for name in alternatives
                              if name in packages or name in provided))
    return names


def copy(names, root, packages):
    """Files by tar, records into the root's own package database."""
    database = root / DATABASE.relative_to("/")
    files = []
    for name in names:
        for info in (DATABASE / "info").glob(f"{name}[.:]*"):
            if re.fullmatch(rf"{re.escape(name)}(:\w+)?\.\w+", info.name):
                files.append(str(info))
                if info.suffix == ".list":
                    files += [path for path in info.read_text().splitlines() if os.path.islink(path) or os.path.isfile(path)]
    files += [str(path) for path in pathlib.Path("/usr/bin").iterdir() if path.is_symlink() and
              os.readlink(path).startswith("/etc/alternatives/")]
    files += ["/etc/alternatives", str(DATABASE / "triggers"), "/etc/passwd", "/etc/group"]
    files = [path for path in files if path.lstrip("/") not in FOLDERS and not LEFT_OUT.match(path)]
    subprocess.run(f"tar -C / -cf - --null -T - | tar -C '{root}' -xf - --keep-directory-symlink", shell=True, check=True,
                   input="\0".join(path.lstrip("/") for path in dict.fromkeys(files)).encode())
    with (database / "status").open("a") as status:
        status.writelines(packages[name][1] + "\n" for name in sorted(names))


def main(root, *arguments):
    packages, provided = installed()
    debs = [next(stanzas(subprocess.check_output(["dpkg-deb", "-f", deb], text=True)))[0]
            for deb in arguments if deb.endswith(".deb")]
    own = {fields["Package"] for fields in debs}
    wanted = [name for name, (fields, _) in packages.items() if fields.get("Essential") == "yes"]
    wanted += [name for name in arguments if not name.endswith(".deb")]
    for fields in debs:
        wanted += needs(fields["Depends"], packages, provided, own)
    for folder in ("usr", "tmp", "proc", "dev", "sys", "run", "root", "etc", "var/tmp", "var/cache", "var/lib/dpkg/updates", "home"):
        (root / folder).mkdir(parents=True, exist_ok=True)
    for folder in FOLDERS:
        if os.path.islink(f"/{folder}") and not os.path.lexists(root / folder):
            (root / os.readlink(f"/{folder}")).mkdir(exist_ok=True, parents=True)
            os.symlink(os.readlink(f"/{folder}"), root / folder)
    (root / "tmp").chmod(0o1777)
    status = root / DATABASE.relative_to("/") / "status"
    status.touch()
    present = {fields["Package"] for fields, _ in stanzas(status.read_text())}
    copy(closure(wanted, packages, provided) - present, root, packages)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), *sys.argv[2:])
