# Shared by the tests that run Windows programs.
# shellcheck shell=bash
export LC_ALL=C.UTF-8
PATH=$PATH:/usr/sbin:/sbin

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Leaves the test out, and says so, unless the native build has made these files.
need_native() {
    local file
    for file in "$@"; do
        [ -e "$file" ] || { echo "LEFT OUT: build the preset release first, for $file"; exit 77; }
    done
}

fresh_folder() {
    rm -rf "$1"
    mkdir -p "$1"
    cd "$1" || fail "no folder $1"
}
