#!/usr/bin/env python3
"""Checks every #include of this project against the table of allowed includes.

Usage: check_includes.py ROOT. Prints each include that is not allowed, and cycles between files (a header and its source count as one); exit status 1 then.
"""
import graphlib
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+[<"]([^>"]+)[>"]', re.M)
PLATFORM = ["QvStd/", "QvConfig/"]
BASE = PLATFORM + ["QvServicesExport.h", "resid/"]
STRING_TABLE = ["module/ModuleInitializer.h"]
MANAGER = ["manager/ResourceManager.h"]
FACTORIES = ["nodes/", "url/"]
INTERFACE = ["QvServices/QvServices.h"] + PLATFORM

# (folder, prefixes that its headers may include, prefixes that its sources may include, too, prefixes of these that only
# one file of the folder may include); the first row that matches a file counts.
RULES = [
    ("platform/QvStd/", ["QvStd/"], [], []),
    ("platform/QvConfig/", PLATFORM, [], []),
    ("src/resid/", BASE, [], []),
    ("src/storage/", BASE + ["storage/"], [], []),
    ("src/journal/", BASE + ["journal/"], [], []),
    ("src/module/", PLATFORM + ["QvServicesExport.h", "module/"], [], []),
    ("src/profiles/", BASE + ["profiles/"], STRING_TABLE, []),
    ("src/setup/", BASE + ["profiles/", "setup/"], STRING_TABLE, []),
    ("src/manager/", BASE + ["profiles/", "manager/"], ["module/"] + FACTORIES, FACTORIES),
    ("src/nodes/", BASE + MANAGER + ["nodes/"], ["storage/"] + STRING_TABLE, []),
    ("src/url/", BASE + ["url/"], MANAGER + STRING_TABLE, []),
    ("src/services/", BASE + ["services/"], MANAGER + STRING_TABLE, []),
    ("src/", [""], [], []),  # the umbrella header
    ("tools/qvres/journal/", INTERFACE + ["journal/"], [], []),
    ("tools/", INTERFACE, [], []),
    ("bench/", INTERFACE + ["journal/"], [], []),
    ("examples/", INTERFACE, [], []),
]


def forbidden(root, path, rule, users):
    """The project's includes in the file that the rule does not allow, and the headers it includes."""
    relative = path.relative_to(root).as_posix()
    _, header_may, source_may, one_file = rule
    allowed = tuple(header_may + (source_may if path.suffix == ".cpp" else []))
    wrong, targets = [], []
    for name in INCLUDE.findall(path.read_text()):
        found = [root / top / name for top in ("platform", "src") if (root / top / name).is_file()]
        targets += found + [path.parent / name] * (path.parent / name).is_file()
        if (found or name.startswith("QvServices/")) and not name.startswith(allowed):
            wrong.append(f"{relative} may not include {name}")
        if name.startswith(tuple(one_file)):
            users.setdefault(rule[0], set()).add(relative)
    return wrong, targets


def cycle(edges):
    """A circle of files, each a header with its source, that need each other; empty when there is none."""
    try:
        graphlib.TopologicalSorter(edges).prepare()
    except graphlib.CycleError as error:
        return error.args[1]
    return []


def main(root):
    wrong, edges, users = [], {}, {}
    files = [p for top in ("platform", "src", "tools", "bench", "examples") for p in (root / top).rglob("*")]
    for path in sorted(p for p in files if p.suffix in (".h", ".cpp")):
        relative = path.relative_to(root).as_posix()
        rule = next((r for r in RULES if relative.startswith(r[0])), None)
        if rule is None:
            wrong.append(f"{relative}: no rule says what it may include")
            continue
        faults, targets = forbidden(root, path, rule, users)
        wrong += faults
        edges.setdefault(path.stem, set()).update(t.stem for t in targets if t.stem != path.stem)
    wrong += [f"only one file of {folder} may: {', '.join(sorted(names))}" for folder, names in users.items() if len(names) > 1]
    if circle := cycle(edges):
        wrong.append("cycle: " + " -> ".join(circle))
    print("\n".join(wrong) if wrong else "all includes are allowed")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
