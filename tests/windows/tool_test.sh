#!/usr/bin/env bash
# tool_test.sh TOOL WORK_FOLDER WINE...
# What the Windows tool does in its own way: arguments, long paths, local names, locks, Ctrl-C.
set -euo pipefail
# shellcheck source=tests/windows/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
tool=$1 work=$2
wine=("${@:3}")

fatvol() { timeout 60 "${wine[@]}" "$tool" "$@"; }

# refused PATTERN ARGUMENT...
refused() {
    local status=0
    fatvol "${@:2}" >output 2>message || status=$?
    [ "$status" -ne 0 ] || fail "not refused: ${*:2}"
    grep -q -e "$1" message || fail "${*:2}: $(cat message)"
}

fresh_folder "$work"
mkfs.fat -F 32 -s 1 -C image 40000 >/dev/null

# A path of more than 260 units, names that need UTF-16, separators of both kinds.
part='a part of a path with some fifty characters, no more'
long="$part/$part/$part/$part/$part/$part"
mkdir -p "$long"
echo 'far away' >"$long/ελληνικά 😀.txt"
touch -d '2022-08-01 10:20:30Z' "$long/ελληνικά 😀.txt"
fatvol put image "${long//\//\\}" '\From afar'
[ "$(fatvol cat image '/From afar/ελληνικά 😀.txt')" = 'far away' ] || fail 'a long path'
fatvol get image '/From afar' "$long/back"
cmp "$long/back/ελληνικά 😀.txt" "$long/ελληνικά 😀.txt"
[ "$(stat -c %Y "$long/back/ελληνικά 😀.txt")" = "$(stat -c %Y "$long/ελληνικά 😀.txt")" ] ||
    fail 'the time was not kept'

# Output and input carry bytes unchanged.
head -c 300000 /dev/urandom >bytes
fatvol put image - /bytes.bin <bytes
fatvol cat image /bytes.bin | cmp - bytes

# What exists is replaced by order only; names that mean devices are not written at all.
fatvol get image /bytes.bin .
refused 'exists' get image /bytes.bin .
fatvol get -f image /bytes.bin .
fatvol put image - /NUL.txt <<<device
refused 'no safe local file name' get image /NUL.txt .
[ -z "$(find . -name '*.part')" ] || fail 'a temporary file was left'
refused 'not found\|cannot find' ls missing
refused 'no such file' cat image /missing

# A writer keeps all others out while it works; readers share.
sleep 4 | fatvol put image - /slow.txt &
sleep 2
refused 'used by another process\|[Ss]haring violation' ls image
wait

# Ctrl-C ends a wait for input; what was under way goes.
status=0
(head -c 5000000 /dev/zero && sleep 5) |
    timeout --preserve-status --signal=INT 2 "${wine[@]}" "$tool" put image - '/From a pipe' \
        2>message || status=$?
[ "$status" -eq 1 ] || fail "interrupted with status $status"
grep -q interrupted message || fail "no word of the interrupt: $(cat message)"
fatvol ls image >output
if grep 'From a pipe' output; then fail 'a partial file was left'; fi
grep -q SLOW.TXT output || fail 'what came before is missing'
fsck.fat -n image >report || fail "$(cat report)"
rm -rf "$work"
