#!/usr/bin/env bash
# msvc_host_test.sh API_FOLDER LIBRARY CLANG LLD_LINK LLVM_DLLTOOL WORK_FOLDER WINE...
# Compiles the host msvc_host.cpp for MSVC's binary interface, links it to the library by the .def
# file and runs it: it lists a volume and frees its storage object itself, once.
set -euo pipefail
# shellcheck source=tests/windows/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
api=$1 library=$2 clang=$3 lld_link=$4 dlltool=$5 work=$6
source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/msvc_host.cpp
for program in "$clang" "$lld_link" "$dlltool"; do
    command -v "$program" >/dev/null || { echo "LEFT OUT: $program"; exit 77; }
done

fresh_folder "$work"
"$dlltool" -m i386:x86-64 -d "$api/fatvol.def" -l fatvol.lib
"$clang" --target=x86_64-pc-windows-msvc -std=c++17 -O1 -Wall -Wextra -Werror -fno-exceptions \
    -fno-rtti -I "$api" -c "$source" -o host.obj
"$lld_link" /subsystem:console /entry:Start /nodefaultlib /out:host.exe host.obj fatvol.lib \
    /usr/x86_64-w64-mingw32/lib/libmsvcrt.a
cp "$library" .
mkfs.fat -F 12 -C image 1440 >/dev/null
echo 123 >'A long name.txt'
mcopy -i image 'A long name.txt' ::
"${@:7}" host.exe image | tr -d '\r' >listing
diff listing - <<'END' || fail 'another listing'
4 A long name.txt
destroyed 1, freed 1
END
rm -rf "$work"
