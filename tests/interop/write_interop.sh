#!/usr/bin/env bash
# write_interop.sh TOOL WORK_FOLDER
# Volumes of all FAT types are filled and changed by the tool, in turn with mtools; after every step
# fsck.fat finds nothing, and the tool, mcopy and 7z read what a local copy of the tree holds.
set -euo pipefail
# shellcheck source=tests/interop/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

sound() {
    fsck.fat -n "$image" >"$work/fsck" || fail "$*: $(cat "$work/fsck")"
}

compare() {
    sound "$@"
    compare_volume "$tool" "$files" "$image" "$work"
    rm -rf "$work/unpacked"
    7z x -y -o"$work/unpacked" "$image" >/dev/null
    expect_same_tree "$files" "$work/unpacked" "7z read other files than were written"
    # Not the times: 7z takes summer's local times for winter's.
}

# new_volume SIZE_KIB MKFS_OPTION...
new_volume() {
    rm -rf "$image" "$files"
    mkdir "$files"
    truncate -s "${1}K" "$image"
    mkfs.fat "${@:2}" "$image" >/dev/null
}

# Runs the command on the volume and the program of the same name on the local tree.
both() {
    local argument arguments=()
    "$tool" "$1" "$image" "${@:2}" || fail "$*"
    for argument in "${@:2}"; do
        [[ $argument = /* ]] && argument=$files$argument
        arguments+=("$argument")
    done
    [ "$1" = cp ] && arguments+=(-p)
    "$1" "${arguments[@]}"
    sound "$@"
}

# refused PATTERN COMMAND ARGUMENT...: fails, says why and leaves every byte of the image.
refused() {
    local status=0
    cp "$image" "$work/before"
    "$tool" "$2" "$image" "${@:3}" 2>"$work/message" >"$work/output" || status=$?
    [ "$status" -ne 0 ] || fail "not refused: ${*:2}"
    grep -q -e "$1" "$work/message" || fail "${*:2}: $(cat "$work/message")"
    cmp "$image" "$work/before" || fail "changed by: ${*:2}"
}

# make_tree COUNT LARGEST_BYTES
make_tree() {
    local deep level
    deep="$files/Deep tree"
    for level in 1 2 3 4 5 6 7 8 9 10 11 12; do
        deep="$deep/Level $level down"
    done
    mkdir -p "$deep" "$files/Empty folder" "$files/NUMBERED" "$files/Ελληνικά/Ещё папка"
    {
        list_numbered_files "$files/NUMBERED" "$1" "$2"
        awk -v folder="$files" 'BEGIN {
            for (size = 512; size <= 65536; size *= 2) print size " " folder "/Exactly " size
            for (i = 1; i <= 200; i++) name = name (i % 2 ? "N" : "e")
            print "10 " folder "/" name
        }'
        printf '%d %s\n' "$2" "$deep/The deepest file of all.txt" 0 "$files/EMPTY" \
            1500 "$files/Grüße aus Köln, naïve Façade.txt" 2500 "$files/+,;=[plus].x" \
            2600 "$files/Ελληνικά/Ещё папка/Война и мир.txt" 1 "$files/UPPER.TXT"
    } | write_files first
    set_times "$files" 1
}

change() {
    both mkdir '/Made here'
    both mkdir -p '/Made here/Two more/Levels of it' '/Made here/Two more'
    both mv '/UPPER.TXT' '/Made here'
    both mv '/Exactly 512' '/Made here/Two more/Moved and renamed'
    both mv '/Exactly 1024' '/exactly 1024'
    both mv '/Deep tree' '/DEEP Tree'
    both mv '/DEEP Tree/Level 1 down/Level 2 down' '/NUMBERED/Level of another'
    both mv '/Grüße aus Köln, naïve Façade.txt' '/GRÜSSE aus KÖLN, naïve façade.txt'
    both cp '/Exactly 4096' '/Made here/Copy of it'
    both cp -r '/NUMBERED/Level of another' '/Made here' '/Ελληνικά'
    both rm -r '/NUMBERED/Level of another' '/EMPTY' '/Empty folder'
    both truncate -s 5000 '/exactly 1024' '/Exactly 8192' '/Exactly 16384'
    both truncate -s 70K '/Made here/UPPER.TXT'
    both truncate -s 0 '/Exactly 2048'
    both touch -d '2011-02-03 04:05:06' '/exactly 1024' '/Exactly 8192' '/Exactly 16384' \
        '/Made here/UPPER.TXT' '/Exactly 2048' '/A new one.bin'
    "$tool" attr "$image" +rhs -a '/Exactly 8192'
    [ "$("$tool" attr "$image" '/Exactly 8192')" = '-rhs-  /Exactly 8192' ] || fail attr
    mattrib -i "$image" '::Exactly 8192' | grep -q ' SHR ' || fail 'mattrib sees other attributes'
    "$tool" attr "$image" -rhs +a '/Exactly 8192'
    # mtools does not read names beyond the basic plane.
    both mkdir -p '/𝔘pper/𝔓lane'
    [ "$("$tool" ls -1 "$image" '/𝔘pper')" = '𝔓lane' ] || fail 'a surrogate pair'
    both rm -r '/𝔘pper'
    compare changed
}

# Each adds to and takes from what the other has written.
change_in_turn() {
    printf '%d %s\n' 3000 "$files/By mtools 1.bin" 20000 "$files/Made here/By mtools 2.bin" |
        write_files second
    touch -d '2012-03-04 05:06:08' "$files/By mtools 1.bin" "$files/Made here/By mtools 2.bin"
    mcopy -m -i "$image" "$files/By mtools 1.bin" ::
    mcopy -m -i "$image" "$files/Made here/By mtools 2.bin" '::Made here'
    both mv '/By mtools 1.bin' '/Made here/Moved twice.bin'
    both rm '/Made here/By mtools 2.bin'
    mdel -i "$image" '::Exactly 32768'
    mmd -i "$image" '::A folder of mtools'
    rm "$files/Exactly 32768"
    mkdir "$files/A folder of mtools"
    printf '%d %s\n' 9000 "$files/A folder of mtools/Put in.bin" | write_files third
    "$tool" put "$image" "$files/A folder of mtools/Put in.bin" '/a folder OF mtools'
    "$tool" put --skip "$image" "$files/NUMBERED" /
    echo 'other contents' >"$files/Exactly 4096"
    touch -d '2013-04-05 06:07:08' "$files/Exactly 4096"
    cp "$image" "$work/before"
    [ "$("$tool" put --dry-run --force "$image" "$files/Exactly 4096" /)" = \
        'would replace /Exactly 4096' ] || fail 'a dry run says something else'
    cmp "$image" "$work/before" || fail 'a dry run changed the image'
    "$tool" put --force "$image" "$files/Exactly 4096" /
    "$tool" put "$image" - '/From a pipe' <"$files/Exactly 65536"
    touch -d '2014-05-06 07:08:10' "$files/Exactly 65536"
    both touch -d '2014-05-06 07:08:10' '/From a pipe' '/Exactly 65536'
    cp -p "$files/Exactly 65536" "$files/From a pipe"
    compare 'changed in turn'
}

refuse() {
    local odd="$work/odd" long
    rm -rf "$odd"
    mkdir "$odd"
    long=$(printf 'x%.0s' $(seq 250))
    echo 1 | tee "$odd/a:b" "$odd/Dot at the end." "$odd/ Space" "$odd/Two..dots" >"$odd/$long"
    truncate -s 1G "$odd/Too much"
    truncate -s 5G "$odd/Too large"
    refused 'exists' put "$files/Exactly 4096" /
    refused 'exists' mkdir '/made HERE'
    refused 'exists' mv '/Exactly 8192' '/exactly 4096'
    refused 'in the way' put "$files/Made here" '/Exactly 8192'
    refused 'no such directory' put "$files/Exactly 4096" '/None/x'
    refused 'no such file' rm '/None'
    refused 'is a directory' rm '/Made here'
    refused 'itself' mv '/Made here' '/Made here/Two more'
    refused 'itself' cp -r '/Made here' '/made here/Two more'
    refused 'disk full: .* missing' put "$odd/Too much" /
    refused 'disk full: .* missing' truncate -s 2G '/Exactly 8192'
    refused 'too large' put "$odd/Too large" /
    refused 'path is too long' put "$odd/$long" '/Made here'
    refused 'path is too long' mv '/Exactly 8192' "/Made here/$long"
    refused 'character that FAT refuses' put "$odd/a:b" /
    refused 'cut off' put "$odd/Dot at the end." "$odd/ Space" /
    refused 'two dots' put "$odd/Two..dots" /
    refused 'character that FAT refuses' mkdir '/a*b'
    flock "$image" "$tool" mkdir "$image" /Two 2>"$work/message" && fail 'a second writer'
    flock -s "$image" "$tool" mkdir "$image" /Two 2>"$work/message" && fail 'writer and reader'
    flock -s "$image" "$tool" ls "$image" >/dev/null || fail 'a second reader'
    rm -rf "$odd"
}

# test_volume NAME SIZE_KIB FILES LARGEST_BYTES MKFS_OPTION...
test_volume() {
    echo "== $1"
    new_volume "$2" -n "${1^^}" "${@:5}"
    make_tree "$3" "$4"
    "$tool" put "$image" "$files/." /
    compare "$1"
    change
    change_in_turn
    refuse
    compare "$1 in the end"
}

# Root directories of a fixed size, and replacing where the room is short.
test_full() {
    local number
    echo "== full: $*"
    new_volume "$@"
    mkdir "$files/Many"
    for number in $(seq 20); do echo "$number" >"$files/Many/Long name $number"; done
    refused 'root directory full: .* are needed' put "$files/Many/." /
    for number in $(seq 16); do echo "$number" >"$files/Many/F$number"; done
    "$tool" put "$image" "$files"/Many/F* /
    sound 'a full root directory'
    refused 'root directory full' touch /F17
    refused 'root directory full' put -f "$files/Many/F1" /
    "$tool" rm "$image" /F1 /F2 /F3
    truncate -s $(($1 * 6 / 10))K "$files/Half"
    "$tool" put "$image" "$files/Half" /HALF
    echo different | "$tool" put -f "$image" - /F4
    [ "$("$tool" cat "$image" /F4)" = different ] || fail 'a replaced file'
    refused 'disk full' put --force "$files/Half" /HALF
    truncate -s "${1}K" "$work/pipe"
    "$tool" put -f "$image" - /HALF <"$work/pipe" 2>"$work/message" && fail 'too much'
    grep -q 'disk full' "$work/message" || fail "$(cat "$work/message")"
    "$tool" cat "$image" /HALF | cmp - "$files/Half" || fail 'the old file was lost'
    sound 'after a replacement that failed'
    if "$tool" ls -1 "$image" | grep '~'; then fail 'a temporary file was left'; fi
    rm "$work/pipe"
}

# The file under way goes, those before it stay.
test_interrupt() {
    local status=0
    echo '== interrupt'
    new_volume 4194304 -F 32 -s 64
    echo 1 >"$files/A first.txt"
    truncate -s 3900M "$files/Then a large one"
    timeout --preserve-status --signal=INT 0.4 "$tool" put "$image" "$files/." / \
        2>"$work/message" || status=$?
    [ "$status" -eq 3 ] || fail "interrupted with status $status"
    [ "$("$tool" ls -1 "$image")" = 'A first.txt' ] || fail 'a partial file was left'
    sound interrupted
    status=0
    (head -c 5000000 /dev/zero && sleep 3) |
        timeout --preserve-status --signal=INT 1 "$tool" put "$image" - '/From a pipe' \
            2>"$work/message" || status=$?
    [ "$status" -eq 1 ] || fail "interrupted with status $status"
    grep -q interrupted "$work/message" || fail 'no word of the interrupt'
    [ "$("$tool" ls -1 "$image")" = 'A first.txt' ] || fail 'a partial file was left'
    sound 'interrupted at a pipe'
}

test_volume floppy 1440 100 7000 -F 12
test_volume fat12_4k 12288 200 30000 -F 12 -s 8 -f 1
test_volume fat16_512 16384 200 30000 -F 16 -s 1
test_volume fat16_16k 131072 200 60000 -F 16 -s 32
test_volume fat32_512 40960 300 40000 -F 32 -s 1
test_volume fat32_4k 300000 300 90000 -F 32 -s 8
test_full 1440 -F 12 -r 16
test_full 8192 -F 16 -s 1 -r 16
test_interrupt
rm -rf "$work"
