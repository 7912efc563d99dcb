#!/usr/bin/env bash
# large_interop.sh TOOL WORK_FOLDER
# A FAT32 volume of 2 GiB with 10,000 files in 100 folders, and three large ones.
set -euo pipefail
# shellcheck source=tests/interop/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

write_folders 100
printf '%d %s\n' 40000001 "$files/Large 1.bin" 20000000 "$files/LARGE2.BIN" \
    16777216 "$files/Large 3.bin" | write_files large
set_times "$files" 50

truncate -s 2G "$image"
mkfs.fat -F 32 -n LARGE "$image" >/dev/null
(cd "$files" && mcopy -s -m -i "$image" -- * ::)
compare_volume "$tool" "$files" "$image" "$work"
[ "$(find "$work/got" -type f | wc -l)" -eq 10003 ] || fail "the number of files is wrong"
rm -rf "$work"
