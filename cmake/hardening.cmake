# What makes a mistake harder to exploit: addresses that nobody knows beforehand, relocations that are
# read-only before main, canaries, checked copies, probed stack growth, checked targets of jumps. What it
# costs is in HACKING.md. Sanitizers check more, and do not go together with all of it.
set(OVIX_HARDENING on CACHE STRING "To see what it costs: off, on, or everywhere, with canaries on the fast road, too")
if(NOT OVIX_SANITIZE AND NOT OVIX_HARDENING STREQUAL off)
  include(CheckCXXCompilerFlag)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  set(CMAKE_REQUIRED_FLAGS -Werror) # clang only warns of what it does not know
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "OVIX_HAS${flag}" has)
    check_cxx_compiler_flag(${flag} ${has}) # those for jumps are each of one processor
    if(${has})
      add_compile_options(${flag})
    endif()
  endforeach()
  unset(CMAKE_REQUIRED_FLAGS)
  # A link carries a note that shadow stacks or marked jumps may be enforced if all of its objects do. All of ours
  # do; the C library's start code does not, though its returns match its calls. Its _init is no marked target.
  if(OVIX_HAS_fcf_protection)
    add_link_options(-Wl,-z,shstk)
  endif()
  string(TOUPPER "CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}" flags)
  if(NOT "${CMAKE_CXX_FLAGS} ${${flags}}" MATCHES "-O0") # the C library refuses it there
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()

# Exported is what one object of ours uses of another: the host's names, from the host and from the
# programs, whose copies of static variables must be the same ones.
add_compile_options(-fvisibility-inlines-hidden)
set(tested "")
if(OVIX_TESTS OR OVIX_BENCH)
  file(READ tests/host.names tested)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS tests/host.names)
endif()
set(host_map ${CMAKE_BINARY_DIR}/generated/host.map)
configure_file(cmake/host.map.in ${host_map} @ONLY)
function(ovix_exports target)
  if(OVIX_SANITIZE) # whose runtime in a program is that of its libraries, too
    return()
  endif()
  target_link_options(${target} PRIVATE -Wl,--version-script=${host_map})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${host_map})
endfunction()
