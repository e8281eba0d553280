#!/bin/sh
# Installs what the armel (ARMv5TE soft-float) build and its tests need on Debian 12, on top of
# the host build's packages (run as root). QtCore for armel is not installed here: installing
# qtbase5-dev:armel fights the host's security updates of shared libraries, so
# scripts/armel-sysroot.sh unpacks it into the build tree instead.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh"
export DEBIAN_FRONTEND=noninteractive
if ! dpkg --print-foreign-architectures | grep -qx armel; then
    dpkg --add-architecture armel
    apt-get update -qq
fi
need=""
for p in g++-arm-linux-gnueabi qemu-user libgtest-dev:armel binutils; do
    dpkg -s "$p" >/dev/null 2>&1 || need="$need $p"
done
if [ -n "$need" ]; then
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends $need
fi
