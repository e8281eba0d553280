#!/bin/sh
# Builds the driver as an integrator does with a panel SDK (driver-only configuration, the SDK's
# toolchain file, QtCore 4.8, old std::string layout), warning-free, makes the qt4-oldabi release
# bundle from that build and checks its driver against the oldest panels' symbol versions. Then
# runs the whole armel suite under qemu-arm with that driver as the one under test: the tests,
# the simulated panel and the host are built as by test-qt4.sh --armel, only the driver is the
# SDK's.
# Usage: scripts/test-panel-sdk.sh SDK QT4_ARMEL_PREFIX [BUILD_DIR]
#   SDK               holds panel-sdk.cmake and bin/arm-linux-gnueabi-* (scripts/armel-sdk.sh)
#   QT4_ARMEL_PREFIX  QtCore 4.8 built for armel (see CONTRIBUTING.md)
#   BUILD_DIR         default build-panel-sdk: driver/ the SDK build, suite/ everything else
set -eu
# The newest symbol versions the bundle's driver may need: glibc 2.7 and GCC 5's libstdc++
# (docs/panel-build.md has the table).
max_versions=GLIBC_2.7,GLIBCXX_3.4.21,CXXABI_1.3,CXXABI_ARM_1.3.3,GCC_3.5
usage="usage: test-panel-sdk.sh SDK QT4_ARMEL_PREFIX [BUILD_DIR]"
top=$(cd "$(dirname "$0")/.." && pwd)
sdk=$(cd "${1:?$usage}" && pwd)
qt4=$(cd "${2:?$usage}" && pwd)
dir=${3:-"$top/build-panel-sdk"}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
driver=$dir/driver
suite=$dir/suite
"$top/scripts/armel-deps.sh"

# The suite takes the driver from the release bundle the SDK build makes (the file a panel gets:
# stripped, no search path); the SDK build links with the suite's simulated HAL.
bundled=$driver/bundle/lib/libkrvcontrol_armv5.so.1
cmake -S "$top" -B "$suite" -DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchain-armel.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKRV_OLD_STRING_ABI=ON -DKRV_QT4_DIR="$qt4" \
    -DKRV_PREBUILT_DRIVER="$bundled" >/dev/null
cmake --build "$suite" -j2 --target wexa-hal wexa-runtime
hal=$suite/lib/libwexa-hal.so

cmake -S "$top" -B "$driver" -DCMAKE_TOOLCHAIN_FILE="$sdk/panel-sdk.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DKRV_QT4_DIR="$qt4" -DKRV_HAL_LIBRARY="$hal" \
    -DKRV_OLD_STRING_ABI=ON \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_SHARED_LINKER_FLAGS=-Wl,--fatal-warnings >/dev/null
cmake --build "$driver" -j2
cmake --build "$driver" --target package >/dev/null
bundle=$(ls "$driver"/package/krvcontrol-*-armel-qt4-oldabi.tar.gz)
rm -rf "$driver/bundle"
mkdir "$driver/bundle"
tar xzf "$bundle" -C "$driver/bundle" --strip-components=1
echo "$bundle"
tools=$sdk/bin/arm-linux-gnueabi
sh "$top/scripts/check-abi.sh" --readelf "$tools-readelf" --nm "$tools-nm" --cxx "$tools-g++" \
    --lib "$hal" --lib "$qt4/lib/libQtCore.so.4" --runtime "$suite/lib/libwexa-runtime.so" \
    --interface "$top/platform/include" --armv5-soft --installed --max-versions "$max_versions" \
    "$driver/bundle/lib/libkrvcontrol_armv5.so"

cmake --build "$suite" -j2
ctest --test-dir "$suite" --output-on-failure -j2
