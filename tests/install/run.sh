#!/usr/bin/env bash
# Installs the build into a fresh folder and uses it as a stranger would: by find_package, by pkg-config, and moved elsewhere.
#   run.sh BUILD_FOLDER STRANGER_FOLDER COMPILER COMPILER_FLAGS
set -euo pipefail
build=$1 stranger=$2 compiler=$3 flags=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved" # nothing in it may know where it was installed
prefix=$work/moved
mkdir "$work/data"

cmake -S "$stranger" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_CXX_FLAGS="$flags" >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/build" >"$work/log" || { cat "$work/log"; exit 1; }
"$work/build/stranger" "$work/data"
echo "find_package: fine"

pc=$(find "$prefix" -name QvServices.pc)
if grep -n "$work" "$pc"; then echo "absolute path in $pc"; exit 1; fi
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$pc")
# shellcheck disable=SC2046,SC2086
"$compiler" -std=c++17 -fPIC $flags "$stranger/main.cpp" -o "$work/by-pkg-config" $(pkg-config --cflags --libs QvServices) \
    -Wl,-rpath,"$(pkg-config --variable=libdir QvServices)"
"$work/by-pkg-config" "$work/data"
echo "pkg-config: fine"

"$prefix/bin/qvres" --mount "/D=$work/data" ls /D | grep -qx /D/hello.txt
echo "qvres: fine"

# Found in the moved installation, and finds its libraries there.
if [ -x "$prefix/libexec/QvServices/qvres-serve" ]; then
    { "$prefix/bin/qvres" serve --stop "$work/data" 2>&1 || true; } | grep -qx "qvres: nothing is served at \"$work/data\""
    echo "qvres serve: fine"
fi
