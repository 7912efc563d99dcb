#!/usr/bin/env bash
# same_image_test.sh NATIVE_BUILD TOOL WORK_FOLDER WINE...
# The Windows tool and the native one, with the same input, clock, time zone and code page, write
# images that are equal to the byte.
set -euo pipefail
# shellcheck source=tests/windows/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
native_build=$1 tool=$2 work=$3
wine=("${@:4}")
need_native "$native_build/tools/fatvol/fatvol" "$native_build/tests/fixed_clock/libfatvol.so.1" \
    "$native_build/tests/locales/fatvol_cp1252/LC_CTYPE"
export TZ=XST-5:30

on_linux() {
    LOCPATH=$native_build/tests/locales LC_ALL=fatvol_cp1252 \
        LD_LIBRARY_PATH=$native_build/tests/fixed_clock "$native_build/tools/fatvol/fatvol" "$@"
}

on_windows() { "${wine[@]}" "$tool" "$@"; }

make_files() {
    mkdir -p 'files/Letters/Köln' files/Many
    echo short >files/SHORT.TXT
    seq 60000 >'files/Numbers in a row.csv'
    echo accent >files/é.txt
    echo macron >files/ā.txt
    echo Greek >'files/Letters/Ελληνικό κείμενο.txt'
    echo CJK >'files/Letters/Köln/字.txt'
    : >'files/Letters/empty file'
    local number
    for number in $(seq 40); do echo "$number" >"files/Many/A long name, number $number.txt"; done
    find files -exec touch -d @1700000001 {} +
}

# Every kind of change, by the tool that the arguments name.
change() {
    "$@" put image files /
    "$@" mkdir -p image '/Made/on the/way'
    "$@" cp -r image /FILES/Letters /Made
    "$@" mv image '/FILES/Numbers in a row.csv' '/Made/on the/Renumbered.csv'
    "$@" mv image /FILES/é.txt /FILES/É2.txt
    "$@" rm image '/FILES/Many/A long name, number 7.txt' '/FILES/Many/A long name, number 8.txt'
    "$@" truncate -s 70000 image /FILES/SHORT.TXT
    "$@" touch -d '2024-02-29 12:34:56' image /FILES/SHORT.TXT  # truncate has its own clock
    "$@" put -f image files/Many /FILES
}

fresh_folder "$work"
make_files
for options in '-F 12 -s 4 image 2880' '-F 16 -s 4 image 20000' '-F 32 -s 1 image 40000'; do
    for system in on_linux on_windows; do
        rm -f image
        # shellcheck disable=SC2086
        mkfs.fat --invariant -C $options >/dev/null
        change "$system"
        mv image "$system"
    done
    cmp on_linux on_windows || fail "the images differ: mkfs.fat $options"
    fsck.fat -n on_windows >report || fail "$(cat report)"
    on_windows ls on_linux /FILES >listing
    grep -q 'É2.txt' listing || fail "not listed: $(cat listing)"
done
rm -rf "$work"
