# GoogleTest for the test programs.
#
# Debian's prebuilt libgtest uses the C++11 std::string layout. With KRV_OLD_STRING_ABI every
# test passes old-layout strings into it (assertion messages, test names, temp paths) and would
# not link, so that mode builds GoogleTest from Debian's sources (libgtest-dev ships them under
# /usr/src/googletest) with the flags of the rest of the tree. Otherwise CMake's own module finds
# the prebuilt library.
if(NOT KRV_OLD_STRING_ABI)
  include(${CMAKE_ROOT}/Modules/FindGTest.cmake)
  return()
endif()

if(NOT TARGET GTest::gtest)
  set(KRV_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources for the old string ABI")
  if(NOT EXISTS ${KRV_GTEST_SOURCE_DIR}/googletest/CMakeLists.txt)
    message(FATAL_ERROR "KRV_OLD_STRING_ABI needs the GoogleTest sources in ${KRV_GTEST_SOURCE_DIR} (libgtest-dev)")
  endif()
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  # Third-party code: our -Werror stays off it.
  get_directory_property(_krv_options COMPILE_OPTIONS)
  set(_krv_gtest_options ${_krv_options})
  list(REMOVE_ITEM _krv_gtest_options -Werror)
  set_directory_properties(PROPERTIES COMPILE_OPTIONS "${_krv_gtest_options}")
  add_subdirectory(${KRV_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/third_party/googletest EXCLUDE_FROM_ALL)
  set_directory_properties(PROPERTIES COMPILE_OPTIONS "${_krv_options}")
  # GoogleTest names its targets GTest::gtest, GTest::gtest_main, GTest::gmock ... itself.
  add_library(GTest::GTest ALIAS gtest)
  add_library(GTest::Main ALIAS gtest_main)
endif()
set(GTest_FOUND TRUE)
set(GTEST_FOUND TRUE)
set(GTEST_LIBRARIES GTest::gtest)
set(GTEST_MAIN_LIBRARIES GTest::gtest_main)
set(GTEST_BOTH_LIBRARIES GTest::gtest GTest::gtest_main)
