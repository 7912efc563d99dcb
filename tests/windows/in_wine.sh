#!/bin/sh
# in_wine.sh PREFIX PROGRAM [ARGUMENT...]
# Runs a Windows program without a display, in a Wine prefix that nothing else uses and that is made
# when it is missing. in_wine.sh PREFIX --wait: until everything in it has ended.
set -eu
WINEPREFIX=$1
shift
unset DISPLAY WAYLAND_DISPLAY
# Names of files are UTF-8 and the code page is 1252: C.UTF-8 names no language. Neither a browser nor
# another runtime is to be installed.
export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' LC_ALL=C.UTF-8
PATH=$PATH:/usr/lib/wine

if [ "$1" = --wait ]; then
    exec wineserver64 --wait
fi
exec wine64 "$@"
