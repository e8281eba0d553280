#!/bin/sh
# Installs what building and testing need on Debian 12 (run as root).
set -eu
# Installing chrony must never start its service on the build machine: it would
# try to discipline the host clock. Tests start their own chronyd in a sandbox.
if [ ! -e /usr/sbin/policy-rc.d ]; then
    printf '#!/bin/sh\nexit 101\n' > /usr/sbin/policy-rc.d
    chmod 755 /usr/sbin/policy-rc.d
fi
export DEBIAN_FRONTEND=noninteractive
need=""
for p in cmake g++ make qtbase5-dev libgtest-dev googletest libbenchmark-dev \
         iproute2 iputils-ping chrony util-linux procps clang libclang-rt-14-dev valgrind; do
    dpkg -s "$p" >/dev/null 2>&1 || need="$need $p"
done
if [ -n "$need" ]; then
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends $need
fi
