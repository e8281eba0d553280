#!/bin/sh
# Builds QtCore 4.8 alone (the panel's Qt) and installs it into PREFIX (PREFIX/include/QtCore,
# PREFIX/lib/libQtCore.so.4), from either
#   - a git checkout of Qt 4's public history: the repository qt/qt, default branch 4.8, cloned
#     outside this repository (a bare clone is enough; it is read with git archive), or
#   - a .tar.xz of the same tree with everything under one top directory (what `git archive
#     --prefix=qt-4.8/` gives), checked against SOURCE.sha256 when that file sits beside it.
# Nothing of it is copied into this repository. About 10 minutes on 2 cores.
#   usage: scripts/qt4-qtcore.sh SOURCE PREFIX [host|armel [SDK]]
#     host   this machine, its own compiler
#     armel  ARMv5TE soft-float with arm-linux-gnueabi-g++ (scripts/armel-deps.sh) and the
#            pre-C++11 std::string layout, as on a panel
#     SDK    for armel: the compiler and C library of an SDK made by scripts/armel-sdk.sh
#            instead of ours, so that the prefix also loads on the SDK's older C library. QtCore
#            is built without STL conversions: no std::string in its interface, so one prefix
#            serves drivers of either string layout.
# GCC 12 builds Qt 4's own code only as C++98; code that includes its headers may be C++11 or later.
set -eu
usage="usage: qt4-qtcore.sh SOURCE PREFIX [host|armel [SDK]]"
source=${1:?$usage}
prefix=${2:?$usage}
target=${3:-host}
case $target in host|armel) ;; *) echo "target must be host or armel" >&2; exit 2;; esac
tools=arm-linux-gnueabi-
sysroot=""
if [ -n "${4:-}" ]; then
    [ "$target" = armel ] || { echo "an SDK is for the armel target" >&2; exit 2; }
    sdk=$(cd "$4" && pwd)
    tools=$sdk/bin/arm-linux-gnueabi-
    sysroot=--sysroot=$sdk/sysroot
    [ -x "${tools}g++" ] || { echo "$sdk holds no bin/arm-linux-gnueabi-g++" >&2; exit 2; }
fi
for p in perl make zlib1g-dev; do
    dpkg -s "$p" >/dev/null 2>&1 || apt-get install -y -qq "$p" >/dev/null
done

work=$(mktemp -d /tmp/qt4-qtcore.XXXXXX)
trap 'rm -rf "$work"' EXIT
# The parts of Qt 4 that building QtCore alone needs.
parts="configure bin mkspecs qmake src/corelib src/xml src/tools src/plugins/codecs src/qbase.pri
    src/qt_install.pri src/qt_targets.pri src/src.pro src/3rdparty/zlib src/3rdparty/zlib.pri
    src/3rdparty/zlib_dependency.pri src/3rdparty/harfbuzz src/3rdparty/md5 src/3rdparty/md4
    src/3rdparty/sha1 src/3rdparty/easing tools/shared config.tests projects.pro config.profiles
    LICENSE.LGPL LGPL_EXCEPTION.txt"
if [ -d "$source" ]; then
    git -C "$source" archive --format=tar HEAD $parts | tar x -C "$work"
else
    if [ -f "$source.sha256" ]; then
        (cd "$(dirname "$source")" && sha256sum -c --quiet "$(basename "$source").sha256")
    fi
    tar xJf "$source" --strip-components=1 -C "$work"
    for p in $parts; do [ -e "$work/$p" ] || { echo "$source lacks $p" >&2; exit 1; }; done
fi
cd "$work"
touch LICENSE.GPL3
# syncqt makes forwarding headers only for the two modules built here.
perl -0pi -e 's/my %modules = \( # path to module name map\n.*?\n\);/my %modules = ( "QtCore" => "\$basedir\/src\/corelib", "QtXml" => "\$basedir\/src\/xml", );/s' bin/syncqt
cxx98='-std=gnu++98 -fpermissive -Wno-deprecated -fno-delete-null-pointer-checks'
echo "QMAKE_CXXFLAGS += $cxx98" >> mkspecs/linux-g++/qmake.conf

cross=""
if [ "$target" = armel ]; then
    mkdir -p mkspecs/linux-armel-g++
    cp mkspecs/linux-g++/qplatformdefs.h mkspecs/linux-armel-g++/
    cat > mkspecs/linux-armel-g++/qmake.conf <<CONF
MAKEFILE_GENERATOR      = UNIX
TARGET_PLATFORM         = unix
TEMPLATE                = app
CONFIG                  += qt warn_on release incremental link_prl
QT                      += core
QMAKE_INCREMENTAL_STYLE = sublib
include(../common/linux.conf)
include(../common/gcc-base-unix.conf)
include(../common/g++-unix.conf)
QMAKE_CC                = ${tools}gcc
QMAKE_CXX               = ${tools}g++
QMAKE_LINK              = ${tools}g++
QMAKE_LINK_SHLIB        = ${tools}g++
QMAKE_AR                = ${tools}ar cqs
QMAKE_OBJCOPY           = ${tools}objcopy
QMAKE_STRIP             = ${tools}strip
QMAKE_CFLAGS            += -march=armv5te -mfloat-abi=soft $sysroot
QMAKE_CXXFLAGS          += -march=armv5te -mfloat-abi=soft $sysroot $cxx98 -D_GLIBCXX_USE_CXX11_ABI=0
QMAKE_LFLAGS            += $sysroot
load(qt_config)
CONF
    cross="-xplatform linux-armel-g++ -arch arm"
fi

# Only QtCore; no STL conversions and no exceptions, as a small panel build of Qt 4 has them.
./configure $cross -platform linux-g++ -opensource -confirm-license -prefix "$prefix" -release \
    -shared -no-gui -no-qt3support -no-xmlpatterns -no-multimedia -no-audio-backend -no-phonon \
    -no-phonon-backend -no-svg -no-webkit -no-javascript-jit -no-script -no-scripttools \
    -no-declarative -no-opengl -no-openssl -no-dbus -no-glib -no-cups -no-nis -no-iconv \
    -no-gtkstyle -nomake examples -nomake demos -nomake docs -nomake translations -nomake tools \
    -no-accessibility -no-sql-sqlite -no-stl -no-exceptions -qt-zlib -no-pch > configure.log 2>&1 \
    || { tail -20 configure.log; exit 1; }
# QtCore carries an ELF interpreter path so that it can print its version when run: the target's.
[ "$target" = host ] ||
    sed -i 's|ELF_INTERPRETER=\\"[^\\]*\\"|ELF_INTERPRETER=\\"/lib/ld-linux.so.3\\"|' src/corelib/Makefile
# moc is a host tool whose bootstrap library wants the system zlib.
(cd src/tools/bootstrap && make -j"$(nproc)") > build.log 2>&1
sed -i 's/^LIBS \(.*\)$/LIBS \1 -lz/' src/tools/moc/Makefile
(cd src/tools/moc && make -j"$(nproc)") >> build.log 2>&1
(cd src/corelib && make -j"$(nproc)" && make install) >> build.log 2>&1 \
    || { grep -E 'error|\*\*\*' build.log | head -20; exit 1; }
ls "$prefix/lib/libQtCore.so.4"
