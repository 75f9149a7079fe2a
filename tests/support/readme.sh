# For the tests that run the README's commands as they stand there; $source is the project's folder.

# block HEADING LANGUAGE: the first such block of the section.
block() {
    awk -v heading="## $1" -v fence="\`\`\`$2" '/^## / { here = $0 == heading } here && $0 == fence { inside = 1; next }
        $0 == "```" && inside { exit } inside' "$source/README.md" | grep .
}

# The file system is left out where the machine has no FUSE.
first_page() {
    block "A first page of use" sh | if [ -e /dev/fuse ]; then cat; else sed '/tree/d'; fi
}

# What the first page must have printed, in the file $1.
check_first_page() {
    local line
    [ ! -e /dev/fuse ] || grep -q '/tree/notes/list.txt:buy bread$' "$1" || { echo "not served"; cat "$1"; return 1; }
    for line in /notes/ "buy bread" ok /Archive/notes/list.txt; do
        grep -qx -- "$line" "$1" || { echo "not printed: $line"; cat "$1"; return 1; }
    done
}
