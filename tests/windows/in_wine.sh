#!/bin/sh
# in_wine.sh PREFIX PROGRAM [ARGUMENT...]
# Runs a Windows program without a display, in a Wine prefix that nothing else uses and that is made
# when it is missing. in_wine.sh PREFIX --wait: until everything in it has ended.
set -eu
WINEPREFIX=$1
shift
unset DISPLAY WAYLAND_DISPLAY
# No locale means code page 1252 there. Neither a browser nor another runtime is to be installed.
export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' LC_ALL=C
PATH=$PATH:/usr/lib/wine

if [ "$1" = --wait ]; then
    exec wineserver64 --wait
fi
exec wine64 "$@"
