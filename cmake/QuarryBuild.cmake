# Compiler settings that every target of the project shares.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

option(QUARRY_WERROR "Treat warnings as errors" ON)
set(QUARRY_SANITIZE "" CACHE STRING "Sanitizers for all targets, such as address,undefined")
option(QUARRY_COVERAGE "Count with clang which lines and conditions are reached" OFF)

# Headers that most files of a target include are read once for all of them, which takes half of the time of many.
# A build without this shows where an include is missing; with TESTS, those of src/ show still. ccache stores little of
# what g++ makes with such headers.
set(QUARRY_PRECOMPILE OFF CACHE STRING "Precompile the headers of the C++ library and of GoogleTest: OFF, TESTS or ON")
function(quarry_precompile target)
  if(QUARRY_PRECOMPILE AND NOT (QUARRY_PRECOMPILE STREQUAL TESTS AND target STREQUAL quarry_core))
    if(ARGV1 STREQUAL REUSE_FROM)
      target_precompile_headers(${target} ${ARGN})
    else()
      target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
  endif()
endfunction()

# Bounds of the C++ library's containers are checked in every build: a mistake ends the program.
add_compile_definitions(_FILE_OFFSET_BITS=64 _GLIBCXX_ASSERTIONS)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
# g++ 12 sees overlapping copies in plain std::string additions when it inlines (GCC bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options(-Wno-restrict)
endif()
if(QUARRY_WERROR)
  add_compile_options(-Werror)
endif()
if(QUARRY_SANITIZE)
  add_compile_options(-fsanitize=${QUARRY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUARRY_SANITIZE})
endif()
if(QUARRY_COVERAGE)
  # The counts are a file that is mapped from the start (%c), one for each program (%m): a run that a signal ends is
  # counted too, and so is one that may write no other file any more.
  add_compile_options("-fprofile-instr-generate=${CMAKE_BINARY_DIR}/counts/%m%c.profraw" -fcoverage-mapping
    "SHELL:-mllvm -runtime-counter-relocation")
  add_link_options(-fprofile-instr-generate)
endif()

# A build from a cache of compiled files is only a convenience: without ccache nothing changes.
find_program(QUARRY_CCACHE ccache)
if(QUARRY_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${QUARRY_CCACHE}")
endif()
