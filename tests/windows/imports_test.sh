#!/usr/bin/env bash
# imports_test.sh OBJDUMP FOLDER
# Fails when the library or the tool in FOLDER needs another library than those of every Windows.
set -euo pipefail

# expect_imports FILE LIBRARY...
expect_imports() {
    local found
    found=$("$objdump" -p "$1" | sed -n 's/.*DLL Name: //p' | sort -f | tr '\n' ' ')
    [ "$found" = "${*:2} " ] || { echo "$1 needs $found"; exit 1; }
}

objdump=$1
expect_imports "$2/fatvol.dll" KERNEL32.dll msvcrt.dll
expect_imports "$2/fatvol.exe" fatvol.dll KERNEL32.dll msvcrt.dll SHELL32.dll
