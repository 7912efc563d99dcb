#!/usr/bin/env bash
# large_write_interop.sh TOOL WORK_FOLDER
# A tree of 10,000 files, put and got back; and the largest file that a volume can hold.
set -euo pipefail
# shellcheck source=tests/interop/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

write_folders 90
mkdir "$files/A thousand"
list_numbered_files "$files/A thousand" 1000 3000 | write_files thousand
set_times "$files" 50
truncate -s 2G "$image"
mkfs.fat -F 32 -n LARGE "$image" >/dev/null
"$tool" put "$image" "$files/." /
fsck.fat -n "$image" >"$work/fsck" || fail "$(cat "$work/fsck")"
compare_volume "$tool" "$files" "$image" "$work"
[ "$(find "$work/got" -type f | wc -l)" -eq 10000 ] || fail "the number of files is wrong"
"$tool" rm -r "$image" '/A thousand' '/Folder 01 of 90'
fsck.fat -n "$image" >"$work/fsck" || fail "$(cat "$work/fsck")"
rm -rf "$work"
mkdir -p "$work"

# With clusters of 32 KiB a file ends one of them before 4 GiB.
largest=4294934528
if [ "$(df --output=avail -B 1 "$work" | tail -n 1)" -lt 20000000000 ]; then
    echo 'LEFT OUT: the largest file, which takes 20 GB of free disk'
    exit 0
fi
truncate -s 5G "$image"
mkfs.fat -F 32 -s 64 "$image" >/dev/null
for place in 0 1000000000 $((largest - 8)); do
    printf 'at %-12s' "$place" | head -c 8 |
        dd of="$work/Largest.bin" bs=1 seek="$place" conv=notrunc status=none
done
truncate -s $((largest + 1)) "$work/One more.bin"
if "$tool" put "$image" "$work/One more.bin" / 2>"$work/message"; then
    fail 'one byte more was not refused'
fi
grep -q "too large: files of this volume end at $largest bytes" "$work/message" ||
    fail "$(cat "$work/message")"
"$tool" put "$image" "$work/Largest.bin" /
fsck.fat -n "$image" >"$work/fsck" || fail "$(cat "$work/fsck")"
"$tool" cat "$image" /Largest.bin | cmp - "$work/Largest.bin" || fail 'the largest file differs'
rm -rf "$work"
