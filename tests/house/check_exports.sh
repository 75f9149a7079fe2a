#!/usr/bin/env bash
# Compares what a library exports with a checked-in list: check_exports.sh LIBRARY LIST [--update]
# Only what the library's own sources define counts: weak copies of templates and inline functions depend on the build, and
# what a compiler adds to a class with virtual functions comes with its typeinfo.
set -euo pipefail

exported() {
    nm -D --defined-only -C "$1" | awk '$2 ~ /^[TDBR]$/ || ($2 == "V" && /typeinfo for (TQv|TResource)/)' | cut -d' ' -f3- |
        grep -vE '^(_init$|_fini$|__|std::|typeinfo for std::|VTT for|(construction )?vtable for|typeinfo name for)' | LC_ALL=C sort -u
}

if [ "${3:-}" = --update ]; then
    exported "$1" >"$2"
else
    diff -u --label checked-in "$2" --label exported <(exported "$1")
fi
