#!/bin/sh
# exported_symbols_test.sh NM LIBRARY LIST
# Fails when the shared library exports anything else than what LIST names, one a line, sorted.
set -eu

exported=$("$1" --dynamic --defined-only --demangle "$2" | cut -d ' ' -f 3- | LC_ALL=C sort -u)
if ! printf '%s\n' "$exported" | diff -u "$3" -; then
    echo "The symbols that $2 exports (+) differ from the list $3 (-)."
    exit 1
fi
