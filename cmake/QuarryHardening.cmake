# The last line behind the bounded views: what the compiler, the C library and the linker can do so that a mistake
# stops the program instead of handing it to whoever wrote the evidence.
#
#   bounds of C and C++ library calls    _FORTIFY_SOURCE=3, _GLIBCXX_ASSERTIONS
#   the stack                            protector, no jump over the guard page
#   jumps                                only to where jumps may lead, where the processor checks that
#   the image in memory                  position-independent, read-only relocations, no executable stack
#
# Only optimised builds have it: the C library's checks need the optimiser. Sanitizers bring their own.
include(CheckPIESupported)
check_pie_supported()

option(QUARRY_HARDEN "Harden optimised builds" ON)

function(quarry_harden target)
  if(NOT QUARRY_HARDEN OR QUARRY_SANITIZE OR QUARRY_FUZZ OR NOT CMAKE_BUILD_TYPE MATCHES "Rel")
    return()
  endif()
  target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -D_GLIBCXX_ASSERTIONS
    -fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    target_compile_options(${target} PRIVATE -fcf-protection)
  endif()
  target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now,-z,noexecstack)
endfunction()
