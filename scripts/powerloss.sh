#!/bin/sh
# Kills a driver process at random moments while it writes its settings files, ROUNDS times
# (default 1000), and checks right after every kill, as another program reads them (as bytes and
# with a QSettings of another process), and again after the next driver's refresh, that each file
# is whole and holds old or new values. BUILD_DIR may be a Qt 4 build (scripts/test-qt4.sh makes
# build-qt4).
#   scripts/powerloss.sh [ROUNDS] [BUILD_DIR]
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
rounds=${1:-1000}
dir=${2:-"$top/build"}
[ -d "$dir" ] || "$top/scripts/build.sh" "$dir"
cmake --build "$dir" -j2 --target panel_powerloss_test
KRV_POWERLOSS_ROUNDS=$rounds exec "$top/sandbox/panel-sandbox" --bind "$top" --bind "$dir" -- \
    "$dir/bin/panel_powerloss_test"
