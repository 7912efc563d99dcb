# Shared by the interop tests: trees of files with known content, volumes filled with them by other
# programs, and the comparison with what the tool reads.
# shellcheck shell=bash

# Names of files are UTF-8. A time zone with summer time, spelled out so that it needs no database.
export LC_ALL=C.UTF-8 TZ='CET-1CEST,M3.5.0,M10.5.0/3' MTOOLS_SKIP_CHECK=1
PATH=$PATH:/usr/sbin:/sbin

# What each test is called with, and where it works.
tool=$1
work=$2
files="$work/files"
image="$work/volume.img"
rm -rf "$work"
mkdir -p "$files"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Writes files from lines "SIZE PATH" on the input. Every 64 bytes name the file, by $1 and its
# line, and their place in it, so that no two sectors are alike.
write_files() {
    LC_ALL=C awk -v set="$1" '{
        size = $1
        path = substr($0, length($1) + 2)
        format = sprintf("set %-12s file %08d piece %%010d %15s\n", set, NR, "")
        printf "" > path
        for (piece = 0; size >= 64; size -= 64) printf format, piece++ > path
        if (size > 0) printf "%s", substr(sprintf(format, piece), 1, size) > path
        close(path)
    }'
}

# Writes $1 folders of a hundred numbered files each.
write_folders() {
    local number folder
    for number in $(seq -w "$1"); do
        folder="$files/Folder $number of $1"
        mkdir "$folder"
        list_numbered_files "$folder" 100 12000
    done | write_files small
}

# Lines "SIZE PATH" for $2 files in the folder $1, of up to $3 bytes, some empty and some of
# exactly a power of two. A name in one lower case with at most 8.3 characters is kept as case
# marks of the short entry, which the library does not interpret: no such names.
list_numbered_files() {
    awk -v folder="$1" -v count="$2" -v largest="$3" 'BEGIN {
        for (i = 1; i <= count; i++) {
            size = i % 11 == 0 ? 0 : i % 5 == 0 ? 2 ^ (i % 16) : (i * 7919) % (largest + 1)
            if (size > largest) size = largest
            name = i % 4 == 0 ? sprintf("F%05d.DAT", i) : sprintf("File number %05d of many.dat", i)
            printf "%d %s/%s\n", size, folder, name
        }
    }'
}

# Gives the files under $1 different modification times, $2 files each: odd and even seconds, in
# winter and in summer.
set_times() {
    local seconds=1000000001 names
    while mapfile -d '' -t -n "$2" names && [ ${#names[@]} -gt 0 ]; do
        touch -d "@$seconds" "${names[@]}"
        seconds=$((seconds + 2345679))
    done < <(find "$1" -type f -print0 | sort -z)
}

# "PATH<tab>TIME" of the files under $1, as FAT keeps times: in steps of 2 seconds.
list_times() {
    (cd "$1" && find . -type f -printf '%P\t%Ts\n' | sort |
        awk -F '\t' '{ printf "%s\t%d\n", $1, int($2 / 2) * 2 }')
}

expect_same_tree() {
    diff -r "$1" "$2" || fail "$3"
}

# Compares the volume $3 with the files $2 that were copied onto it, reading it with the tool $1
# and with mcopy. Uses the folder $4.
compare_volume() {
    local tool=$1 files=$2 image=$3 work=$4 before
    before=$(stat -c '%y %z %s' "$image")
    rm -rf "$work/got" "$work/copied"
    mkdir "$work/got" "$work/copied"
    "$tool" get "$image" / "$work/got"
    [ "$(stat -c '%y %z %s' "$image")" = "$before" ] || fail "reading changed $image"
    mcopy -s -n -m -i "$image" :: "$work/copied"
    expect_same_tree "$files" "$work/got" "the tool read other files than were written"
    expect_same_tree "$files" "$work/copied" "mcopy read other files than were written"
    expect_same_tree "$work/copied" "$work/got" "the tool and mcopy disagree"
    diff <(list_times "$files") <(list_times "$work/got") || fail "modification times differ"
}
