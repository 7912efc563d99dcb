#!/bin/sh
# in_wine.sh PREFIX PROGRAM [ARGUMENT...]
# Runs a Windows program without a display, in a Wine prefix that nothing else uses and that is made
# when it is missing. in_wine.sh PREFIX --start, and --end: before the first and after the last one.
set -eu
WINEPREFIX=$1
shift
unset DISPLAY WAYLAND_DISPLAY
# Names of files are UTF-8 and the code page is 1252: C.UTF-8 names no language. Neither a browser nor
# another runtime is to be installed.
export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' LC_ALL=C.UTF-8
PATH=$PATH:/usr/lib/wine

case $1 in
--start)
    # A server that ends with the last program may refuse the next one that comes just then.
    mkdir -p "$WINEPREFIX"
    wineserver64 --wait || true
    wineserver64 --persistent=600 </dev/null >/dev/null 2>&1
    exec wine64 wineboot --init </dev/null >/dev/null 2>&1  # its services keep what they are given
    ;;
--end)
    wineserver64 --kill || true
    exec wineserver64 --wait
    ;;
esac
exec wine64 "$@"
