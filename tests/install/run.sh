#!/usr/bin/env bash
# Installs the build and uses it as a stranger would: the examples by find_package against an installation that was moved, and
# every command of the README as it stands there, in an empty home folder.
#   run.sh BUILD_FOLDER SOURCE_FOLDER COMPILER [COMPILER_FLAGS]     with flags (sanitizers) the examples only
set -euo pipefail
build=$(realpath "$1") source=$(realpath "$2") compiler=$3 flags=${4:-}

work=$(mktemp -d)
trap 'fusermount3 -uqz "$work/home/tree" || true; rm -rf "$work"' EXIT
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

quietly cmake --install "$build" --prefix "$work/first"
mv "$work/first" "$work/moved" # nothing in it may know where it was installed
mkdir "$work/data" "$work/copy"
quietly cmake -S "$source/examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$work/moved" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags"
quietly cmake --build "$work/examples"
"$work/examples/settings_label_backup" "$work/data" | diff - <(printf 'interval: 15\nchanged: 1\nbackups: 1\n')
"$work/examples/copy_with_progress" "$work/data" "$work/copy"
"$work/examples/mount_and_list" "$work/data" "$work/copy" >"$work/list"
grep -q ' /Projects/Right/backup/settings\..*\.x-ini$' "$work/list"
grep -qx '/left is mounted: 1' "$work/list"
# qvres finds its program in the moved installation, and that finds its libraries.
if [ -x "$work/moved/libexec/QvServices/qvres-serve" ]; then
    { "$work/moved/bin/qvres" serve --stop "$work/data" 2>&1 || true; } | grep -qx "qvres: nothing is served at \"$work/data\""
fi
[ -z "$flags" ] || exit 0

# Ctrl-C while the second of two files waits: strace sends it when the first percent is shown.
touch "$work/data/second"
status=0
strace -qq -o /dev/null -e trace=write -e inject=write:signal=INT:when=1 "$work/examples/copy_with_progress" "$work/data" \
    "$work/copy" 2>"$work/log" || status=$?
[ $status = 1 ] && grep -q 'not everything was copied' "$work/log" && [ ! -e "$work/copy/second" ]
echo "examples: fine"

source "$source/tests/support/readme.sh"
mkdir "$work/home" "$work/home/program"
{
    # What was built already stands for the README's own build; its configuration is tried, and must leave out the tests.
    cat <<END
    cd "$source"
    cmake() {
        case \$1 in
        -B) command cmake -S . "\${@/#build\/home/$work/home-build}" && [ ! -e "$work/home-build/tests" ] ;;
        --build) ;;
        --install) command cmake --install "$build" --prefix "\$HOME/.local" ;;
        esac >"$work/log" || { cat "$work/log"; exit 1; }
    }
END
    block Install sh
    first_page
    echo 'cd ~/program'
    block "From a program" sh
} >"$work/page"
block "From a program" cpp >"$work/home/program/main.cpp"
block "From a program" cmake >"$work/home/program/CMakeLists.txt"
env -i HOME="$work/home" PATH="$PATH" LANG=C.UTF-8 bash -euo pipefail "$work/page" >"$work/output" || { cat "$work/output"; exit 1; }
check_first_page "$work/output"
[ "$(tail -n 3 "$work/output" | grep -c '^/notes/backup/todo\..*\.txt$')" = 1 ]
gzip -t "$work/home/.local/share/man/man1/qvres-ls.1.gz"
echo "README: fine"

cd "$work/home/program"
grep -o 'cmake -B build -D.*--build build' "$source/README.md" >"$work/page"
quietly env HOME="$work/home" bash -eu "$work/page"
HOME=$work/home ./build/list | diff - <(HOME=$work/home ./list)
if grep -n "$work" "$work"/home/.local/lib/pkgconfig/*.pc; then exit 1; fi
echo "README, CMake: fine"
