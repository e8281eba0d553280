#!/bin/sh
# Builds the driver as an integrator does with a panel SDK and makes both Qt 4 release bundles,
# qt4-oldabi and qt4-newabi, each held to its own symbol-version ceiling; then loads each bundle's
# driver with the bundle's krv-abi-check on the SDK's own C library and C++ runtime, and runs the
# whole armel suite under qemu-arm with the qt4-oldabi driver as the one under test.
# For each string layout:
#   - the simulated runtime and HAL, built with the SDK's compiler (the panel's libraries, made as
#     old as the panel's C library);
#   - the driver-only configuration with the SDK's toolchain file and the SDK host's CMake
#     (Debian 11's 3.18, the minimum the docs name for it), warnings as errors; the bundle from it;
#   - check-abi.sh on the bundle's driver and on each of its programs, with the layout's ceiling, and
#     the bundle's texts pointing at nothing outside it;
#   - the bundle's krv-abi-check, under qemu-arm in the panel sandbox, on a root that holds only
#     the SDK's C library and C++ runtime (glibc 2.31), the runtime's library preloaded.
# The suite (tests, simulated panel, host) is built as by test-qt4.sh --armel; only the driver is
# the SDK's. It runs once: the qt4-newabi driver is the same sources and compiler with the other
# string layout, which changes only the driver's symbols at the runtime and libstdc++ boundary;
# the checks above cover that boundary, and the new layout's behaviour runs in test-armel.sh.
# Usage: scripts/test-panel-sdk.sh [--driver-only] SDK QT4_ARMEL_PREFIX [BUILD_DIR]
#   --driver-only     only the qt4-oldabi driver-only build and its ceiling (no bundle, no suite):
#                     quick enough for a mutant to be judged by it
#   SDK               holds panel-sdk.cmake, bin/arm-linux-gnueabi-* and host/bin/cmake
#                     (scripts/armel-sdk.sh)
#   QT4_ARMEL_PREFIX  QtCore 4.8 built for armel with the SDK's compiler (scripts/qt4-qtcore.sh
#                     SOURCE PREFIX armel SDK): it is loaded on the SDK's C library too
#   BUILD_DIR         default build-panel-sdk: oldabi/ and newabi/ (runtime/, driver/ and the
#                     unpacked bundle/ of each), package/ both bundles, suite/ everything else
set -eu
# The newest symbol versions each bundle may need (docs/panel-build.md has the table): what the
# driver reaches, glibc 2.6 and GCC 4.4's libstdc++; the new std::string layout comes with GCC 5's.
ceiling_oldabi=GLIBC_2.6,GLIBCXX_3.4.11,CXXABI_1.3,CXXABI_ARM_1.3.3,GCC_3.5
ceiling_newabi=GLIBC_2.6,GLIBCXX_3.4.21,CXXABI_1.3,CXXABI_ARM_1.3.3,GCC_3.5
usage="usage: test-panel-sdk.sh [--driver-only] SDK QT4_ARMEL_PREFIX [BUILD_DIR]"
driver_only=0
if [ "${1:-}" = --driver-only ]; then
    driver_only=1
    shift
fi
top=$(cd "$(dirname "$0")/.." && pwd)
sdk=$(cd "${1:?$usage}" && pwd)
qt4=$(cd "${2:?$usage}" && pwd)
dir=${3:-"$top/build-panel-sdk"}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
# Our CMake, qemu-arm and the cross compiler of the suite (the mutants' quick check needs none).
[ $driver_only = 1 ] || "$top/scripts/armel-deps.sh"
old_cmake=$sdk/host/bin/cmake
[ -x "$old_cmake" ] || { echo "$sdk lacks host/bin/cmake: run scripts/armel-sdk.sh $sdk" >&2; exit 1; }
tools=$sdk/bin/arm-linux-gnueabi
check_abi() {
    sh "$top/scripts/check-abi.sh" --readelf "$tools-readelf" --nm "$tools-nm" --cxx "$tools-g++" \
        --armv5-soft "$@"
}
ceiling_of() { eval echo "\$ceiling_$1"; }
# check_driver LAYOUT [OPTION]... DRIVER: the driver of that layout against its runtime and ceiling.
check_driver() {
    layout_libs=$dir/$1/runtime/lib
    ceiling=$(ceiling_of "$1")
    shift
    check_abi --lib "$layout_libs/libwexa-hal.so" --lib "$qt4/lib/libQtCore.so.4" \
        --runtime "$layout_libs/libwexa-runtime.so" --interface "$top/platform/include" \
        --max-versions "$ceiling" "$@"
}

# runtime LAYOUT OLD_STRING_ABI: the simulated runtime and HAL of that layout, built with the SDK's compiler.
# The whole tree is configured for it, so this takes our CMake; ARMv5 needs libatomic for the
# runtime's 64-bit tick count.
runtime() {
    cmake -S "$top" -B "$dir/$1/runtime" -DCMAKE_TOOLCHAIN_FILE="$sdk/panel-sdk.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DKRV_QT4_DIR="$qt4" -DKRV_OLD_STRING_ABI="$2" \
        -DKRV_BUILD_TESTS=OFF \
        -DCMAKE_CXX_STANDARD_LIBRARIES="-Wl,--push-state,--as-needed -latomic -Wl,--pop-state" \
        >/dev/null
    cmake --build "$dir/$1/runtime" -j2 --target wexa-hal wexa-runtime >/dev/null
}

# driver LAYOUT OLD_STRING_ABI: the driver-only configuration, as docs/panel-build.md has it.
driver() {
    "$old_cmake" -S "$top" -B "$dir/$1/driver" -DCMAKE_TOOLCHAIN_FILE="$sdk/panel-sdk.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DKRV_QT4_DIR="$qt4" -DKRV_OLD_STRING_ABI="$2" \
        -DKRV_HAL_LIBRARY="$dir/$1/runtime/lib/libwexa-hal.so" -DKRV_BUNDLE_NEEDS="$(ceiling_of "$1")" \
        -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_SHARED_LINKER_FLAGS=-Wl,--fatal-warnings \
        >/dev/null
    "$old_cmake" --build "$dir/$1/driver" -j2
}

if [ $driver_only = 1 ]; then
    runtime oldabi ON
    driver oldabi ON
    check_driver oldabi "$dir/oldabi/driver/lib/libkrvcontrol_armv5.so.1"
    exit
fi

# The root the bundle's programs run on under qemu-arm: the SDK's C library and C++ runtime, and
# an empty loader cache, so that nothing of this machine's armel libraries is found.
root=$dir/sdk-root
rm -rf "$root"
mkdir -p "$root/lib" "$root/etc"
: > "$root/etc/ld.so.cache"
for l in ld-linux.so.3 libc.so.6 libm.so.6 libpthread.so.0 libdl.so.2 librt.so.1 libgcc_s.so.1 \
    libstdc++.so.6 libatomic.so.1; do
    cp -L "$sdk/sysroot/lib/$l" "$root/lib/"
done

# bundle_texts BUNDLE: its texts name no path of this source tree and link only to texts it
# holds: an integrator has the bundle alone.
bundle_texts() {
    texts=$(find "$1" -type f \( -name INSTALL -o -name '*.md' -o -name '*.txt' \))
    bad=$(grep -nE '(^|[^/A-Za-z0-9_.-])(scripts|platform|tests|tools|device|bench|fuzz|sandbox|host|build(-[a-z0-9-]+)?)/' \
        $texts || true)
    for text in $texts; do
        for link in $(grep -o ']([^)#:]*[)#]' "$text" | sed 's/^](//; s/.$//'); do
            [ -f "$(dirname "$text")/$link" ] || bad="$bad${bad:+
}$text: link to $link, not in the bundle"
        done
    done
    if [ -z "$bad" ]; then echo "ok: the bundle's texts point only at what it holds"; else
        echo "FAIL: the bundle's texts point outside it:"
        echo "$bad"
        return 1
    fi
}

# on_sdk_root BUNDLE LAYOUT: the bundle's krv-abi-check loads its driver on the SDK's C library,
# with QtCore and the simulated runtime built by the same SDK; the loader's own record shows that
# every library came from the root or from those three places.
on_sdk_root() {
    runtime_lib=$dir/$2/runtime/lib
    log=$dir/$2/on-sdk-root.log
    "$top/sandbox/panel-sandbox" --bind "$top" --bind "$dir" --bind "$qt4" -- \
        qemu-arm -L "$root" -E LD_LIBRARY_PATH="/lib:$qt4/lib:$runtime_lib" -E LD_DEBUG=libs \
        "$1/bin/krv-abi-check" --preload "$runtime_lib/libwexa-runtime.so" \
        "$1/lib/libkrvcontrol_armv5.so.1" >"$log" 2>&1 ||
        { cat "$log"; echo "FAIL: krv-abi-check of the $2 bundle on the SDK's C library"; return 1; }
    grep -v '^ *[0-9]*:' "$log"
    others=$(sed -n 's/.*calling init: //p' "$log" |
        grep -v -e "^/lib/" -e "^$qt4/lib/" -e "^$runtime_lib/" -e "^$1/lib/" || true)
    [ -z "$others" ] || { echo "FAIL: loaded from outside the SDK's root: $others"; return 1; }
    echo "ok: the $2 bundle loaded on the SDK's C library ($(sed -n 's/.*calling init: //p' "$log" | wc -l) objects)"
}

mkdir -p "$dir/package"
for layout in oldabi newabi; do
    old_string_abi=OFF
    [ $layout = newabi ] || old_string_abi=ON
    runtime $layout $old_string_abi
    driver $layout $old_string_abi
    "$old_cmake" --build "$dir/$layout/driver" --target package >/dev/null
    archive=$(ls "$dir/$layout"/driver/package/krvcontrol-*-armel-qt4-$layout.tar.gz)
    cp "$archive" "$dir/package/"
    bundle=$dir/$layout/bundle
    rm -rf "$bundle"
    mkdir "$bundle"
    tar xzf "$archive" -C "$bundle" --strip-components=1
    echo "== $archive"
    check_driver $layout --installed "$bundle/lib/libkrvcontrol_armv5.so"
    for program in "$bundle"/bin/*; do
        check_abi --program --max-versions "$(ceiling_of $layout)" "$program"
    done
    bundle_texts "$bundle"
    on_sdk_root "$bundle" $layout
done

# The suite takes the driver from the qt4-oldabi bundle (the file a panel gets: stripped, no
# search path), and QtCore from the same prefix.
suite=$dir/suite
cmake -S "$top" -B "$suite" -DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchain-armel.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKRV_OLD_STRING_ABI=ON -DKRV_QT4_DIR="$qt4" \
    -DKRV_PREBUILT_DRIVER="$dir/oldabi/bundle/lib/libkrvcontrol_armv5.so.1" >/dev/null
cmake --build "$suite" -j2
ctest --test-dir "$suite" --output-on-failure -j2
