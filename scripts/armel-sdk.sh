#!/bin/sh
# Makes a stand-in for a panel vendor's SDK in PREFIX, outside this repository: Debian 11's armel
# cross compiler (GCC 9.3, glibc 2.31), older than ours, laid out as an integrator finds an SDK:
#   PREFIX/bin/arm-linux-gnueabi-*   the compiler and the binary tools
#   PREFIX/sysroot                   the target's C library and libstdc++
#   PREFIX/panel-sdk.cmake           the toolchain file docs/panel-build.md tells an integrator
#                                    to write, for this PREFIX
# Nothing is installed system-wide but Debian 12's binutils-arm-linux-gnueabi (as, ld and the
# tools); Debian 11's package lists are kept in a private apt state under PREFIX, the machine's
# apt sources stay as they are, and the packages are unpacked with dpkg-deb -x. Skipped when
# PREFIX already holds the SDK. About 200 MB. KRV_SDK_MIRROR names a Debian mirror to try first.
# Usage: scripts/armel-sdk.sh PREFIX
set -eu
prefix=${1:?usage: armel-sdk.sh PREFIX}
if [ -f "$prefix/panel-sdk.cmake" ]; then
    echo "SDK already in $prefix"
    exit 0
fi
dpkg -s binutils-arm-linux-gnueabi >/dev/null 2>&1 ||
    apt-get install -y -qq binutils-arm-linux-gnueabi >/dev/null
apt=$prefix/apt
mkdir -p "$apt/lists/partial" "$apt/debs"
prefix=$(cd "$prefix" && pwd)
apt=$prefix/apt
state="-o Dir::Etc::sourcelist=$apt/sources.list -o Dir::Etc::sourceparts=/dev/null
       -o Dir::State::Lists=$apt/lists -o Dir::Cache=$apt/cache"
# Debian 11 is past its support: its packages move from the mirrors to the archive some time after.
for mirror in ${KRV_SDK_MIRROR:-} http://deb.debian.org/debian http://archive.debian.org/debian; do
    echo "deb [arch=amd64] $mirror bullseye main" > "$apt/sources.list"
    rm -f "$apt"/lists/*Packages*
    apt-get $state update -qq && ls "$apt"/lists/*Packages* >/dev/null 2>&1 && break
done
# apt fetches as the unprivileged _apt user.
chmod 777 "$apt/debs"
# Versions pinned where Debian 12's own armel cross packages share the name.
pkgs="g++-9-arm-linux-gnueabi gcc-9-arm-linux-gnueabi cpp-9-arm-linux-gnueabi
      gcc-9-arm-linux-gnueabi-base libstdc++-9-dev-armel-cross libgcc-9-dev-armel-cross
      libc6-dev-armel-cross=2.31-9cross4 libc6-armel-cross=2.31-9cross4
      linux-libc-dev-armel-cross=5.10.13-1cross4 libstdc++6-armel-cross=10.2.1-6cross1
      libgcc-s1-armel-cross=10.2.1-6cross1"
(cd "$apt/debs" && apt-get $state download -qq $pkgs)
for d in "$apt"/debs/*.deb; do
    dpkg-deb -x "$d" "$prefix"
done
rm -rf "$apt/debs"

# The target's files sit where Debian's cross packages put them; the sysroot is that directory.
# The linker scripts libc.so and libpthread.so name /usr/arm-linux-gnueabi/lib/...: inside a
# sysroot, the linker reads absolute paths relative to it.
ln -sfn usr/arm-linux-gnueabi "$prefix/sysroot"
for f in $(grep -l '^GROUP' "$prefix"/sysroot/lib/*.so); do
    sed -i 's#/usr/arm-linux-gnueabi/lib/#/lib/#g' "$f"
done
# The compiler runs as and ld from its own tree; those and the binary tools are Debian 12's.
mkdir -p "$prefix/usr/arm-linux-gnueabi/bin" "$prefix/bin"
for t in as ld; do
    ln -sf "/usr/bin/arm-linux-gnueabi-$t" "$prefix/usr/arm-linux-gnueabi/bin/$t"
done
for t in gcc g++ cpp; do
    ln -sf "../usr/bin/arm-linux-gnueabi-$t-9" "$prefix/bin/arm-linux-gnueabi-$t"
done
for t in ar as c++filt ld nm objcopy objdump ranlib readelf strip; do
    ln -sf "/usr/bin/arm-linux-gnueabi-$t" "$prefix/bin/arm-linux-gnueabi-$t"
done

cat > "$prefix/panel-sdk.cmake" <<EOF
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(SDK $prefix)
set(CMAKE_SYSROOT \${SDK}/sysroot)
set(CMAKE_C_COMPILER \${SDK}/bin/arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER \${SDK}/bin/arm-linux-gnueabi-g++)
set(CMAKE_C_FLAGS_INIT "-march=armv5te -mfloat-abi=soft")
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -mfloat-abi=soft")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
EOF
"$prefix/bin/arm-linux-gnueabi-g++" --version | head -n 1
echo "SDK in $prefix; toolchain file $prefix/panel-sdk.cmake"
