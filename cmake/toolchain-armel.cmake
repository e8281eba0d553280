# Cross build for the panel: ARMv5TE, soft-float, EABI5 (Debian armel, arm-linux-gnueabi).
#
# The cross compiler and its C/C++ runtimes come from g++-arm-linux-gnueabi (/usr/arm-linux-gnueabi);
# QtCore either from a Qt 4.8 prefix built for armel (KRV_QT4_DIR) or, without one, Debian's
# armel Qt 5 and its dependencies unpacked into KRV_ARMEL_SYSROOT (scripts/armel-sysroot.sh);
# GoogleTest from the multiarch libgtest-dev:armel under /. Programs of the build run through
# qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)

set(KRV_ARMEL_TRIPLET arm-linux-gnueabi)
set(CMAKE_C_COMPILER ${KRV_ARMEL_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KRV_ARMEL_TRIPLET}-g++)

if(NOT KRV_ARMEL_SYSROOT)
  set(KRV_ARMEL_SYSROOT ${CMAKE_BINARY_DIR}/armel-sysroot CACHE PATH
      "Debian armel QtCore and its dependencies, unpacked (scripts/armel-sysroot.sh)")
endif()
if(NOT KRV_ARMEL_BINARY_DIR)
  set(KRV_ARMEL_BINARY_DIR ${CMAKE_BINARY_DIR})
endif()
# try_compile projects re-read this file in a directory of their own.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KRV_ARMEL_SYSROOT KRV_ARMEL_BINARY_DIR
     KRV_QT4_DIR)

if(KRV_QT4_DIR)
  # Qt 4's QtCore needs nothing beyond the C/C++ runtime.
  set(KRV_ARMEL_LIBDIRS ${KRV_QT4_DIR}/lib)
elseif(EXISTS ${KRV_ARMEL_SYSROOT}/usr/lib/${KRV_ARMEL_TRIPLET}/libQt5Core.so.5)
  set(KRV_ARMEL_LIBDIRS
      ${KRV_ARMEL_SYSROOT}/usr/lib/${KRV_ARMEL_TRIPLET}
      ${KRV_ARMEL_SYSROOT}/lib/${KRV_ARMEL_TRIPLET})
else()
  message(FATAL_ERROR "No armel QtCore in ${KRV_ARMEL_SYSROOT}: "
                      "run scripts/armel-sysroot.sh ${KRV_ARMEL_SYSROOT} (or scripts/build-armel.sh)")
endif()

set(CMAKE_FIND_ROOT_PATH ${KRV_ARMEL_SYSROOT} /usr/${KRV_ARMEL_TRIPLET} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Spelled out although they are the compiler's defaults: the panel has no FPU and an ARMv5TE core.
set(CMAKE_C_FLAGS_INIT "-march=armv5te -mfloat-abi=soft")
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -mfloat-abi=soft")

# libQt5Core.so needs ICU, GLib, PCRE2 ... from the sysroot at link time, but nothing may point there
# at run time.
set(_krv_rpath_link "")
foreach(dir ${KRV_ARMEL_LIBDIRS})
  string(APPEND _krv_rpath_link " -Wl,-rpath-link,${dir}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_krv_rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_krv_rpath_link}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${_krv_rpath_link}")

# ARMv5 has no 64-bit atomic instructions: GCC calls libatomic for std::atomic<long long>, which
# the simulated runtime and some tests use. Linked only where needed; the ABI check keeps it out
# of the driver, which cannot count on it on a panel.
set(CMAKE_C_STANDARD_LIBRARIES "-Wl,--push-state,--as-needed -latomic -Wl,--pop-state")
set(CMAKE_CXX_STANDARD_LIBRARIES "${CMAKE_C_STANDARD_LIBRARIES}")

# The emulator is what the tests run under (inside the panel sandbox). qemu-user 7.2 passes
# waitid(P_PIDFD) to the host kernel but refuses clone(CLONE_PIDFD), so Qt 5.15's QProcess
# would trust a pidfd it never got and later close an unrelated descriptor; the test-only
# preload built from tests/support/nopidfd.c fails that probe, as an old panel kernel does.
string(REPLACE ";" ":" _krv_ld_path "${KRV_ARMEL_LIBDIRS}")
set(KRV_ARMEL_TEST_PRELOAD ${KRV_ARMEL_BINARY_DIR}/lib/libkrv-nopidfd.so)
# G_SLICE=always-malloc: qemu-user 7.2 translates code through the host GLib's slice allocator,
# whose locks a fork does not reset; a guest fork while another guest thread is translating
# left the child qemu blocked forever in g_slice_alloc. glibc's malloc is fork-safe.
set(CMAKE_CROSSCOMPILING_EMULATOR
    env G_SLICE=always-malloc
    qemu-arm -L /usr/${KRV_ARMEL_TRIPLET}
    -E LD_LIBRARY_PATH=${_krv_ld_path}
    -E LD_PRELOAD=${KRV_ARMEL_TEST_PRELOAD})
