#!/usr/bin/env bash
# same_listing_test.sh NATIVE_BUILD HOST WORK_FOLDER WINE...
# The example host lists the same on both systems.
set -euo pipefail
# shellcheck source=tests/windows/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
native_build=$1 host=$2 work=$3
need_native "$native_build/examples/first_host"

fresh_folder "$work"
mkfs.fat -F 32 -s 1 -C image 40000 >/dev/null
seq 1000 >'Numbers in a row.csv'
echo Greek >'Ελληνικό κείμενο.txt'
echo short >SHORT.TXT
mcopy -i image 'Numbers in a row.csv' 'Ελληνικό κείμενο.txt' SHORT.TXT ::
"$native_build/examples/first_host" image >expected
"${@:4}" "$host" image | tr -d '\r' >listing
[ "$(wc -l <expected)" -eq 3 ] || fail "listed: $(cat expected)"
diff expected listing || fail 'the listings differ'
rm -rf "$work"
