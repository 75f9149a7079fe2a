#!/usr/bin/env bash
# The Debian packages: lintian finds no error, and they work in a root folder that holds nothing but Debian's base and what they
# depend on, for a user other than root.
#   run.sh FOLDER_OF_DEBS
set -euo pipefail
source=$(realpath "$(dirname "$0")/../..")
source "$source/tests/support/readme.sh"
debs=("$(realpath "$1")"/*.deb)
libraries_and_tools=()
for deb in "${debs[@]}"; do
    [[ $deb == *-dev_* ]] || libraries_and_tools+=("$deb")
done
lintian --fail-on error "${debs[@]}"

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
chmod 755 "$root"
quietly() { "$@" >"$root/tmp/log" 2>&1 || { cat "$root/tmp/log"; exit 1; }; }
# A command of the user in the root folder, with devices that every user may open. What it mounts and starts is gone with it.
enter='mount -t proc proc "$0/proc" && mount -t tmpfs dev "$0/dev" && cp -a /dev/{null,zero,urandom,fuse} "$0/dev" 2>/dev/null
    chmod 666 "$0"/dev/* && ln -s /proc/self/fd "$0/dev/fd" && exec chroot --userspec=1000:1000 "$0" env -i HOME=/home/user \
        PATH=/usr/bin:/bin LANG=C.UTF-8 "$@"'
inside() { unshare --mount --pid --fork bash -c "$enter" "$root" "$@"; }
page() { inside bash -euc "cd; $(cat)"; }

"$source/tests/packages/fresh_root.py" "$root" "${libraries_and_tools[@]}" man-db
mkdir "$root/home/user"
chown 1000:1000 "$root/home/user"
quietly dpkg --root="$root" --install "${libraries_and_tools[@]}"
first_page | page >"$root/tmp/output"
check_first_page "$root/tmp/output"
for name in qvres "1 qvres-ls" qvres-serve qvservices; do
    inside man $name | grep -q "^NAME"
done
echo "in a fresh root: fine"

"$source/tests/packages/fresh_root.py" "$root" "${debs[@]}" g++ pkg-config cmake make bash-completion zsh fish
quietly dpkg --root="$root" --install "${debs[@]}"
# The README says which parts of its page the packages make unnecessary.
mkdir "$root/home/user/program"
block "From a program" cpp >"$root/home/user/program/main.cpp"
chown -R 1000:1000 "$root/home/user/program"
block "From a program" sh | sed -e '1i cd program' -e '/^export/d' -e 's/-Wl,-rpath.*)" //' | page | grep -qx /notes/list.txt
page >"$root/tmp/output" <<'END'
cmake -S /usr/share/doc/libqvservices-dev/examples -B examples >log
cmake --build examples >>log
examples/mount_and_list ~/notes ~/archive
END
grep -q ' /Projects/Right/notes/list.txt$' "$root/tmp/output"
echo "programs: fine"

# Each shell completes an id of a tree that is mounted for this call; bash and zsh without their line editors.
page <<<'mkdir -p "my tree/with blanks"'
cat >"$root/tmp/complete.bash" <<'END'
source /usr/share/bash-completion/bash_completion
_completion_loader qvres
COMP_LINE='qvres --mount /M=~/my\ tree ls /M/' COMP_POINT=${#COMP_LINE} COMP_WORDS=(qvres --mount /M = '$HOME/my\ tree' ls /M/) COMP_CWORD=6
_qvres 2>/dev/null || true
printf '%s\n' "${COMPREPLY[@]}"
END
cat >"$root/tmp/complete.zsh" <<'END'
compadd() { while [[ $1 != -- ]] shift; shift; print -l -- $@ }
words=(qvres --mount '/M=$HOME/my\ tree' ls /M/) CURRENT=5 PREFIX=/M/
fpath=(/usr/share/zsh/vendor-completions $fpath)
autoload _qvres
_qvres
END
cat >"$root/tmp/complete.fish" <<'END'
complete -C 'qvres --mount /M=$HOME/my\ tree ls /M/'
END
for shell in bash zsh fish; do
    inside $shell /tmp/complete.$shell | grep -qx '/M/with blanks/' || { echo "$shell does not complete"; exit 1; }
done
echo "completions: fine"
