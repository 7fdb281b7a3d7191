# Warnings and sanitizers for every target of the project.
add_compile_options(-Wall -Wextra)
if(SCRIVO_WERROR)
  add_compile_options(-Werror)
endif()

if(SCRIVO_SANITIZE)
  string(REPLACE "," ";" _scrivo_sanitizers "${SCRIVO_SANITIZE}")
  foreach(_s IN LISTS _scrivo_sanitizers)
    if(NOT _s MATCHES "^(address|undefined|thread|leak)$")
      message(FATAL_ERROR "SCRIVO_SANITIZE: unknown sanitizer '${_s}'")
    endif()
  endforeach()
  if("thread" IN_LIST _scrivo_sanitizers AND "address" IN_LIST _scrivo_sanitizers)
    message(FATAL_ERROR "SCRIVO_SANITIZE: thread and address cannot be combined")
  endif()
  add_compile_options(-fsanitize=${SCRIVO_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SCRIVO_SANITIZE})
endif()

if(SCRIVO_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "SCRIVO_BUILD_FUZZERS needs clang: configure with CC=clang CXX=clang++")
  endif()
  # The library is instrumented for coverage; each fuzz target adds the driver.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
