#!/usr/bin/env python3
"""Holds every #include of this project against the table of who may include whom.

Usage: check_includes.py ROOT. Prints each include that is not allowed, and include cycles between headers; exit status 1 then.
"""
import graphlib
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+[<"]([^>"]+)[>"]', re.M)
RESID = ["QvServicesExport.h", "resid/"]
PLATFORM = ["QvStd/", "QvConfig/"]
STRING_TABLE = ["manager/ModuleInitializer.h"]
MANAGER = ["manager/ResourceManager.h"]

# (files, prefixes that their headers may include, prefixes that their sources may include besides); the first row that matches
# a file counts.
RULES = [
    (r"platform/QvStd/", ["QvStd/"], []),
    (r"platform/QvConfig/", ["QvStd/", "QvConfig/"], []),
    (r"src/resid/", PLATFORM + RESID, []),
    (r"src/profiles/ResourceProfile", PLATFORM + RESID + ["profiles/ResourceProfile.h"], STRING_TABLE),
    (r"src/profiles/", PLATFORM + RESID + ["profiles/"], STRING_TABLE),
    (r"src/storage/", PLATFORM + RESID + ["storage/"], []),
    (r"src/journal/", PLATFORM + RESID + ["journal/"], []),
    (r"src/manager/ResourceManager\.", PLATFORM + RESID + ["manager/", "profiles/ResourceProfile.h"], ["nodes/", "url/"]),
    (r"src/manager/", PLATFORM + RESID + ["manager/", "profiles/ResourceProfile.h"], ["nodes/", "profiles/"]),
    (r"src/nodes/", PLATFORM + RESID + MANAGER + ["nodes/"], ["storage/ResFileStream.h"] + STRING_TABLE),
    (r"src/(url|services)/", PLATFORM + RESID + ["url/", "services/"], MANAGER + STRING_TABLE),
    (r"src/QvServices(Export)?\.h", [""], []),
    (r"tools/qvres/JournalCommand", ["QvServices/QvServices.h", "QvStd/", "QvConfig/", "journal/"], []),
    (r"tools/", ["QvServices/QvServices.h", "QvStd/", "QvConfig/"], []),
    (r"bench/", ["QvServices/QvServices.h", "QvStd/", "QvConfig/", "journal/"], []),
]


def main(root):
    wrong = []
    edges = {}
    for path in sorted(p for top in ("platform", "src", "tools", "bench") for p in (root / top).rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        relative = path.relative_to(root).as_posix()
        rule = next((r for r in RULES if re.match(r[0], relative)), None)
        if rule is None:
            wrong.append(f"{relative}: no rule says what it may include")
            continue
        allowed = rule[1] + (rule[2] if path.suffix == ".cpp" else [])
        for name in INCLUDE.findall(path.read_text()):
            targets = [root / top / name for top in ("platform", "src") if (root / top / name).is_file()]
            if (targets or name.startswith("QvServices/")) and not name.startswith(tuple(allowed)):
                wrong.append(f"{relative} may not include {name}")
            if path.suffix == ".h":
                edges.setdefault(path, []).extend(targets)
    try:
        graphlib.TopologicalSorter(edges).prepare()
    except graphlib.CycleError as error:
        wrong.append("cycle: " + " -> ".join(header.name for header in error.args[1]))
    print("\n".join(wrong) if wrong else "all includes are allowed")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
