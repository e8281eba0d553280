# The panel release: install rules, the release bundle and the checks of the driver's binary
# interface.
#
# Only the "panel" component goes into the bundle: the driver with its SONAME links, INSTALL (how
# to check the panel, install and go back), the panel check (bin/krv-panel-check) and
# krv-abi-check. The reference docs stay in docs/: they show the simulator and this tree, which a
# bundle does not hold. The simulated runtime and HAL are never shipped; the panel has its own.
set(KRV_INSTALL_LIBDIR lib)
set(KRV_INSTALL_BINDIR bin)
set(KRV_BUNDLE_NEEDS "" CACHE STRING
  "The newest C/C++ runtime symbol versions the bundle may need, e.g. GLIBC_2.6,GLIBCXX_3.4.11 (a ceiling the build is checked against), for its INSTALL text; empty: not stated")

if(KRV_PREBUILT_DRIVER)
  # Installed as its own build would: the file under its SONAME and the .so link to it.
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
  file(CREATE_LINK libkrvcontrol_armv5.so.1 ${CMAKE_BINARY_DIR}/lib/libkrvcontrol_armv5.so SYMBOLIC)
  install(FILES $<TARGET_FILE:krvcontrol_armv5> ${CMAKE_BINARY_DIR}/lib/libkrvcontrol_armv5.so
    DESTINATION ${KRV_INSTALL_LIBDIR} COMPONENT panel)
else()
  install(TARGETS krvcontrol_armv5
    LIBRARY DESTINATION ${KRV_INSTALL_LIBDIR} COMPONENT panel NAMELINK_COMPONENT panel)
endif()
install(TARGETS krv-panel-check krv-abi-check RUNTIME DESTINATION ${KRV_INSTALL_BINDIR}
  COMPONENT panel)

if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
  set(KRV_PACKAGE_ARCH armel)
else()
  set(KRV_PACKAGE_ARCH ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
endif()
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_NAME krvcontrol)
set(CPACK_PACKAGE_VENDOR "krvcontrol")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Panel-control driver for the HMI runtime")
# The name says which QtCore and which std::string layout the driver was built for, e.g.
# krvcontrol-1.1.0-armel-qt4-oldabi: a panel needs the matching pair.
if(KRV_OLD_STRING_ABI)
  set(KRV_PACKAGE_ABI oldabi)
else()
  set(KRV_PACKAGE_ABI newabi)
endif()
set(CPACK_PACKAGE_FILE_NAME
    ${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-${KRV_PACKAGE_ARCH}-qt${KRV_QT_MAJOR}-${KRV_PACKAGE_ABI})

set(KRV_BUNDLE_NAME ${CPACK_PACKAGE_FILE_NAME})
string(REGEX REPLACE "." "=" KRV_BUNDLE_RULE ${KRV_BUNDLE_NAME})
if(KRV_OLD_STRING_ABI)
  set(KRV_BUNDLE_LAYOUT "old (pre-C++11)")
  set(KRV_BUNDLE_FOR "GCC 4.x, or _GLIBCXX_USE_CXX11_ABI=0")
else()
  set(KRV_BUNDLE_LAYOUT "new (C++11)")
  set(KRV_BUNDLE_FOR "GCC 5 or later, default layout")
endif()
if(KRV_BUNDLE_NEEDS)
  string(REPLACE "," " " _krv_needs "${KRV_BUNDLE_NEEDS}")
  set(KRV_BUNDLE_NEEDS_TEXT "at most ${_krv_needs}, checked")
else()
  set(KRV_BUNDLE_NEEDS_TEXT "not stated for this build: step 1 shows the panel has them")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/bundle/INSTALL.in ${CMAKE_BINARY_DIR}/INSTALL @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/INSTALL DESTINATION . COMPONENT panel)
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};${PROJECT_NAME};panel;/")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
include(CPack)

if(KRV_BUILD_TESTS)
  add_subdirectory(${PROJECT_SOURCE_DIR}/tests/abi ${CMAKE_BINARY_DIR}/tests/abi)
endif()
