# Sanitizer and fuzzing instrumentation for every target of the project (driver, simulated
# runtime and HAL, host, tools, tests), so that a fault is seen on whichever side of the dlopen
# boundary it happens.
#
#   KRV_SANITIZE=address,undefined   AddressSanitizer (with LeakSanitizer) and UBSan
#   KRV_SANITIZE=thread              ThreadSanitizer
#   KRV_FUZZ=ON                      libFuzzer coverage on everything, plus address,undefined
#
# Shared libraries built by gcc link the sanitizer runtime themselves; clang leaves it to the
# executable, so under clang the libraries may not insist on having no undefined symbols.
set(KRV_NO_UNDEFINED -Wl,--no-undefined)

set(_krv_sanitizers ${KRV_SANITIZE})
if(KRV_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "KRV_FUZZ needs clang (libFuzzer): configure with -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang")
  endif()
  if(NOT _krv_sanitizers)
    set(_krv_sanitizers address,undefined)
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

set(KRV_SANITIZING OFF)
if(_krv_sanitizers)
  set(KRV_SANITIZING ON)
  if(_krv_sanitizers MATCHES "thread" AND _krv_sanitizers MATCHES "address")
    message(FATAL_ERROR "KRV_SANITIZE: thread and address cannot be combined")
  endif()
  # Every report stops the program: a test or fuzz run must fail on it, not print and go on.
  add_compile_options(-fsanitize=${_krv_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all -g)
  add_link_options(-fsanitize=${_krv_sanitizers})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(KRV_NO_UNDEFINED "")
  endif()
endif()
