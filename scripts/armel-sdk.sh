#!/bin/sh
# Makes a stand-in for a panel vendor's SDK in PREFIX, outside this repository: Debian 11's armel
# cross compiler (GCC 9.3, glibc 2.31), older than ours, laid out as an integrator finds an SDK:
#   PREFIX/bin/arm-linux-gnueabi-*   the compiler and the binary tools
#   PREFIX/sysroot                   the target's C library and libstdc++
#   PREFIX/panel-sdk.cmake           the toolchain file docs/panel-build.md tells an integrator
#                                    to write, for this PREFIX
#   PREFIX/host/bin/cmake, cpack     Debian 11's CMake 3.18, what an SDK host of that age has
# Nothing is installed system-wide but Debian 12's binutils-arm-linux-gnueabi (as, ld and the
# tools); Debian 11's package lists are kept in a private apt state under PREFIX, the machine's
# apt sources stay as they are, and the packages are unpacked with dpkg-deb -x. A part PREFIX
# already holds is skipped. About 250 MB. KRV_SDK_MIRROR names a Debian mirror to try first.
# Usage: scripts/armel-sdk.sh PREFIX
set -eu
prefix=${1:?usage: armel-sdk.sh PREFIX}
if [ -f "$prefix/panel-sdk.cmake" ] && [ -x "$prefix/host/bin/cmake" ] &&
    [ -f "$prefix/usr/arm-linux-gnueabi/lib/libatomic.so.1" ]; then
    echo "SDK already in $prefix"
    exit 0
fi
dpkg -s binutils-arm-linux-gnueabi >/dev/null 2>&1 ||
    apt-get install -y -qq binutils-arm-linux-gnueabi >/dev/null
apt=$prefix/apt
mkdir -p "$apt/lists/partial" "$apt/debs"
prefix=$(cd "$prefix" && pwd)
apt=$prefix/apt
# An empty package status: what this machine has installed (a newer cmake, say) is no candidate.
touch "$apt/status"
state="-o Dir::Etc::sourcelist=$apt/sources.list -o Dir::Etc::sourceparts=/dev/null
       -o Dir::State::Lists=$apt/lists -o Dir::State::status=$apt/status -o Dir::Cache=$apt/cache"
# Debian 11 is past its support: its packages move from the mirrors to the archive some time after.
for mirror in ${KRV_SDK_MIRROR:-} http://deb.debian.org/debian http://archive.debian.org/debian; do
    echo "deb [arch=amd64] $mirror bullseye main" > "$apt/sources.list"
    rm -f "$apt"/lists/*Packages*
    apt-get $state update -qq && ls "$apt"/lists/*Packages* >/dev/null 2>&1 && break
done
# apt fetches as the unprivileged _apt user.
chmod 777 "$apt/debs"
# unpack DIR PACKAGE...: the packages of the private state, unpacked into DIR.
unpack() {
    into=$1
    shift
    (cd "$apt/debs" && apt-get $state download -qq "$@")
    for d in "$apt"/debs/*.deb; do
        dpkg-deb -x "$d" "$into"
    done
    rm -f "$apt"/debs/*.deb
}

# Debian 11's CMake runs on Debian 12 with one library of its own release beside it (jsoncpp's
# older soname); the wrappers put it on the library path of CMake and of what CMake starts.
if [ ! -x "$prefix/host/bin/cmake" ]; then
    unpack "$prefix/host" cmake cmake-data libjsoncpp24
    mkdir -p "$prefix/host/bin"
    for t in cmake cpack ctest; do
        printf '#!/bin/sh\nLD_LIBRARY_PATH=%s${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH} exec %s "$@"\n' \
            "$prefix/host/usr/lib/x86_64-linux-gnu" "$prefix/host/usr/bin/$t" > "$prefix/host/bin/$t"
        chmod 755 "$prefix/host/bin/$t"
    done
    "$prefix/host/bin/cmake" --version | head -n 1
fi
# GCC's atomics library, for programs built with the SDK that use 64-bit atomics (ARMv5 has no
# such instructions): the simulated runtime does.
[ -f "$prefix/usr/arm-linux-gnueabi/lib/libatomic.so.1" ] ||
    unpack "$prefix" libatomic1-armel-cross=10.2.1-6cross1
if [ -f "$prefix/panel-sdk.cmake" ]; then
    rm -rf "$apt/debs"
    echo "SDK in $prefix; toolchain file $prefix/panel-sdk.cmake"
    exit 0
fi

# Versions pinned where Debian 12's own armel cross packages share the name.
pkgs="g++-9-arm-linux-gnueabi gcc-9-arm-linux-gnueabi cpp-9-arm-linux-gnueabi
      gcc-9-arm-linux-gnueabi-base libstdc++-9-dev-armel-cross libgcc-9-dev-armel-cross
      libc6-dev-armel-cross=2.31-9cross4 libc6-armel-cross=2.31-9cross4
      linux-libc-dev-armel-cross=5.10.13-1cross4 libstdc++6-armel-cross=10.2.1-6cross1
      libgcc-s1-armel-cross=10.2.1-6cross1"
unpack "$prefix" $pkgs
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
