#!/usr/bin/env bash
# read_interop.sh TOOL WORK_FOLDER EXAMPLE_HOST
# Volumes of all FAT types, made by mkfs.fat, filled and fragmented by mtools, are read by the tool
# and by mcopy; files, names, times and listings must be those that went in.
set -euo pipefail
# shellcheck source=tests/interop/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
example=$3

# Files in folder $1, $2 of them numbered ones, of up to $3 bytes: deep, long and non-ASCII names.
make_tree() {
    local files=$1 count=$2 largest=$3 deep level
    deep="$files/Deep"
    for level in 1 2 3 4 5 6 7 8 9 10 11 12; do
        deep="$deep/Level $level down"
    done
    mkdir -p "$deep" "$files/Empty folder" "$files/NUMBERED" "$files/Lengths" \
        "$files/Ελληνικά αρχεία/Ещё папка" "$files/日本語のフォルダ"
    {
        list_numbered_files "$files/NUMBERED" "$count" "$largest"
        awk -v folder="$files/Lengths" 'BEGIN {
            for (i = 1; i <= 200; i++) {
                name = name (i % 2 ? "N" : "e")
                if (i <= 40 || i == 200) printf "%d %s/%s\n", i, folder, name
            }
        }'
        printf '%d %s\n' "$largest" "$deep/The deepest file of all.txt" \
            700 "$files/Level 0.txt" 0 "$files/EMPTY" \
            1500 "$files/Grüße aus Köln, naïve Façade.txt" \
            2500 "$files/Ελληνικά αρχεία/Ещё папка/Война и мир.txt" \
            3500 "$files/日本語のフォルダ/長い名前のファイル、とても長い.データ" \
            4500 "$files/ΣΊΣΥΦΟΣ и Ёлка ÿ.txt" 5500 "$files/Name.with.many.dots.in it" \
            600 "$files/SHORT.NAM" 650 "$files/+,;=[plus].x"
    } | write_files first
}

# Fills the volume, deletes every third numbered file and copies files of $3 bytes into the gaps.
fragment() {
    local files=$1 image=$2 size=$3 free deleted count number runs
    free=$(mdir -i "$image" :: | awk '/bytes free/ { gsub(/[^0-9]/, ""); print }')
    truncate -s $((free - size)) "$work/filler"
    mcopy -i "$image" "$work/filler" ::FILLER.BIN
    find "$files/NUMBERED" -type f -printf '%s %p\n' | sort -k 2 |
        awk 'NR % 3 == 0' >"$work/deleted"
    deleted=$(awk '{ sum += $1 } END { print sum }' "$work/deleted")
    sed "s|^[0-9]* $files|::|" "$work/deleted" | tr '\n' '\0' | xargs -0 mdel -i "$image"
    sed 's|^[0-9]* ||' "$work/deleted" | tr '\n' '\0' | xargs -0 rm
    mkdir "$files/Refilled"
    count=$((deleted / size))
    for number in $(seq "$count"); do
        printf '%d %s\n' "$size" "$files/Refilled/File $number"
    done | write_files second
    set_times "$files/Refilled" 1
    mcopy -s -m -i "$image" "$files/Refilled" ::
    mdel -i "$image" ::FILLER.BIN
    rm "$work/filler"
    runs=$(mshowfat -i "$image" '::Refilled/*' | grep -o '<' | wc -l)
    [ "$runs" -ge $((count * 3)) ] || fail "$count files in only $runs runs of clusters"
}

# Lines of the names in folder $1, directories with a slash at the end.
list_names() {
    find "$1" -mindepth 1 "${@:2}" \( -type d -printf '%f/\n' -o -printf '%f\n' \) | sort
}

# What the tool lists, folder by folder and as a tree, and the example host are the files' names.
compare_listings() {
    local files=$1 image=$2 folder path
    while read -r -d '' folder; do
        path=${folder#"$files"}
        diff <(list_names "$folder" -maxdepth 1 | tr -d /) \
            <("$tool" ls -1 "$image" "${path:-/}" | sort) || fail "ls of ${path:-/} differs"
    done < <(find "$files" -type d -print0)
    diff <(list_names "$files") \
        <("$tool" tree "$image" | grep '── ' | sed 's/^.*── //' | sort) || fail "tree differs"
    diff <(list_names "$files" -maxdepth 1 | tr -d /) \
        <("$example" "$image" | cut -c 13- | sort) || fail "the example host differs"
}

# test_volume NAME SIZE_KIB FILES LARGEST_BYTES MKFS_OPTION...
test_volume() {
    local name=$1 sizeKib=$2 count=$3 largest=$4
    local files="$work/files" image="$work/$name.img"
    echo "== $name"
    rm -rf "$files" "$image"
    mkdir "$files"
    make_tree "$files" "$count" "$largest"
    set_times "$files" 1
    truncate -s "${sizeKib}K" "$image"
    mkfs.fat -n "${name^^}" "${@:5}" "$image" >/dev/null
    (cd "$files" && mcopy -s -m -i "$image" -- * ::)
    fragment "$files" "$image" $((largest * 3))
    fsck.fat -n "$image" >"$work/fsck" || fail "$name: $(cat "$work/fsck")"
    compare_volume "$tool" "$files" "$image" "$work"
    compare_listings "$files" "$image"
    rm -rf "$files" "$image"
}

test_volume floppy 1440 120 7000 -F 12
test_volume fat12_4k 12288 300 30000 -F 12 -s 8 -f 1
test_volume fat16_512 16384 300 30000 -F 16 -s 1
test_volume fat16_16k 131072 300 60000 -F 16 -s 32
test_volume fat16_s4096 65536 300 30000 -F 16 -S 4096 -s 1
test_volume fat32_512 40960 400 40000 -F 32 -s 1
test_volume fat32_4k 300000 400 90000 -F 32 -s 8
rm -rf "$work"
