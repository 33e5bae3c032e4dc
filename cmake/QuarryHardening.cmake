# The last line after the bounded views: what the compiler, the C library and the linker can do so that a mistake
# stops the program instead of handing it to whoever wrote the evidence.
#
#   bounds of C library calls            _FORTIFY_SOURCE=3 (those of the C++ library are checked in every build)
#   the stack                            protector, no jump over the guard page, zeros in what was not initialised
#   the image in memory                  position-independent, read-only relocations, no executable stack
#
# Only optimised builds have it: the C library's checks need the optimiser. Sanitizers bring their own, and valgrind
# must see memory that was not initialised. Branch protection (-fcf-protection) is left out: the start-up code and the
# static C++ library of Debian 12 are built without it, so the processor would not enforce it in the linked program.
include(CheckPIESupported)
check_pie_supported()

option(QUARRY_HARDEN "Harden optimised builds" ON)
option(QUARRY_CONFINE "Let the program give up rights that it does not need, in builds that are not instrumented" ON)

# The program and the tests that look at what it may do are told.
function(quarry_tell_confinement target)
  if(QUARRY_CONFINE AND NOT QUARRY_SANITIZE AND NOT QUARRY_FUZZ)
    target_compile_definitions(${target} PRIVATE QUARRY_CONFINE)
  endif()
endfunction()

function(quarry_harden target)
  if(NOT QUARRY_HARDEN OR QUARRY_SANITIZE OR QUARRY_FUZZ OR NOT CMAKE_BUILD_TYPE MATCHES "Rel")
    return()
  endif()
  target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3
    -fstack-protector-strong -fstack-clash-protection -ftrivial-auto-var-init=zero)
  # Until version 16, clang has zeros only for those who say that they know of its doubts.
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 16)
    target_compile_options(${target} PRIVATE
      -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
  endif()
  target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now,-z,noexecstack)
endfunction()
