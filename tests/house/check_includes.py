#!/usr/bin/env python3
"""Holds every #include of this project against the table of who may include whom.

Usage: check_includes.py ROOT. Prints each include that is not allowed, and include cycles between headers; exit status 1 then.
"""
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+([<"])([^>"]+)[>"]', re.M)
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
    (r"src/storage/(ResStream|ResFileStream)", PLATFORM + RESID + ["storage/"], []),
    (r"src/storage/", PLATFORM + RESID + ["storage/"], MANAGER),
    (r"src/manager/ResourceManager\.", PLATFORM + RESID + ["manager/", "profiles/ResourceProfile.h"], ["nodes/", "url/"]),
    (r"src/manager/", PLATFORM + RESID + ["manager/", "profiles/ResourceProfile.h"], ["nodes/"]),
    (r"src/nodes/", PLATFORM + RESID + MANAGER + ["nodes/"], ["storage/ResFileStream.h"] + STRING_TABLE),
    (r"src/(url|services)/", PLATFORM + RESID + ["url/", "services/"], MANAGER + STRING_TABLE),
    (r"src/QvServices(Export)?\.h", [""], []),
    (r"tools/qvres-journal/", [""], []),
    (r"tools/", ["QvServices/QvServices.h", "QvStd/", "QvConfig/"], []),
    (r"bench/", ["QvServices/QvServices.h", "QvStd/", "QvConfig/", "storage/"], []),
]


def own_includes(path, roots):
    for _, name in INCLUDE.findall(path.read_text()):
        for root in roots:
            if (root / name).is_file():
                yield name, root / name
                break


def main(root):
    folders = [root / "platform", root / "src"]
    wrong = []
    edges = {}
    for path in sorted(p for top in ("platform", "src", "tools", "bench") for p in (root / top).rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        relative = path.relative_to(root).as_posix()
        if re.match(r"(tools|bench)/", relative):
            names = [(name, None) for _, name in INCLUDE.findall(path.read_text())
                     if name.startswith("QvServices/") or any((f / name).is_file() for f in folders)]
        else:
            names = list(own_includes(path, folders))
        rule = next((r for r in RULES if re.match(r[0], relative)), None)
        if rule is None:
            wrong.append(f"{relative}: no rule says what it may include")
            continue
        allowed = rule[1] + (rule[2] if path.suffix == ".cpp" else [])
        for name, target in names:
            if not any(name.startswith(prefix) for prefix in allowed):
                wrong.append(f"{relative} may not include {name}")
            if target is not None and path.suffix == ".h":
                edges.setdefault(path, []).append(target)

    state = {}

    def visit(header, trail):
        if state.get(header) == "done":
            return
        if header in trail:
            wrong.append("cycle: " + " -> ".join(h.name for h in trail[trail.index(header):] + [header]))
            return
        for target in edges.get(header, []):
            visit(target, trail + [header])
        state[header] = "done"

    for header in list(edges):
        visit(header, [])
    print("\n".join(wrong) if wrong else "all includes are allowed")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
