#!/usr/bin/env bash
# Compares what a library exports with a checked-in list: check_exports.sh LIBRARY LIST [--update]
# Only what the library's own sources define counts: weak copies of templates and inline functions depend on the build.
set -euo pipefail

exported() {
    nm -D --defined-only -C "$1" | awk '$2 ~ /^[TDBR]$/ || ($2 == "V" && /(typeinfo|vtable) for T?Qv|(typeinfo|vtable) for TResource/)' |
        cut -d' ' -f3- | grep -v -e '^_init$' -e '^_fini$' -e '^__' | LC_ALL=C sort -u
}

if [ "${3:-}" = --update ]; then
    exported "$1" >"$2"
else
    diff -u --label checked-in "$2" --label exported <(exported "$1")
fi
