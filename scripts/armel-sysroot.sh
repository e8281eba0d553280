#!/bin/sh
# Unpacks Debian's armel QtCore, its development files and its shared-library dependencies into
# SYSROOT without touching the host's package database (apt-get download + dpkg -x).
# Usage: scripts/armel-sysroot.sh SYSROOT
set -eu
sysroot=${1:?usage: armel-sysroot.sh SYSROOT}
pkgs="libqt5core5a qtbase5-dev qt5-qmake libpcre2-16-0 libdouble-conversion3 libicu72 libzstd1
      zlib1g libglib2.0-0 libpcre2-8-0 libffi8 libmount1 libblkid1 libselinux1"
stamp="$sysroot/.krv-packages"
want=$(for p in $pkgs; do apt-cache policy "$p:armel" | awk -v p="$p" '/Candidate:/ {print p, $2}'; done)
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ]; then
    exit 0
fi
if echo "$want" | grep -q '(none)'; then
    echo "armel packages unknown to apt: run scripts/armel-deps.sh first" >&2
    exit 1
fi
rm -rf "$sysroot"
debs="$sysroot.debs"
rm -rf "$debs"
mkdir -p "$debs" "$sysroot"
# apt fetches as the unprivileged _apt user.
chmod 777 "$debs"
(cd "$debs" && apt-get download -qq $(for p in $pkgs; do printf '%s:armel ' "$p"; done))
for d in "$debs"/*.deb; do
    dpkg -x "$d" "$sysroot"
done
rm -rf "$debs"
# Qt's CMake package refuses to load without moc and rcc next to it; the host's tools do, since
# the driver uses neither.
mkdir -p "$sysroot/usr/lib/qt5/bin"
for t in moc rcc; do
    ln -sf "/usr/lib/qt5/bin/$t" "$sysroot/usr/lib/qt5/bin/$t"
done
echo "$want" > "$stamp"
