#!/bin/sh
# exported_symbols_test.sh LIST LIBRARY READER
# Fails when the library exports by name anything else than what LIST names, one a line, sorted.
# READER is the nm or objdump that knows the library's kind of file.
set -eu
list=$1 library=$2 reader=$3

exported_names() {
    case $reader in
    *objdump) "$reader" -p "$library" | sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^[[:space:]]*\[ *[0-9]*\] //p' ;;
    *) "$reader" --dynamic --defined-only "$library" | cut -d ' ' -f 3- ;;
    esac
}

exported=$(exported_names | c++filt | LC_ALL=C sort -u)
if ! printf '%s\n' "$exported" | diff -u "$list" -; then
    echo "The symbols that $library exports (+) differ from the list $list (-)."
    exit 1
fi
