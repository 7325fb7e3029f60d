# What `--version` says comes from here: the project's version, the commit at the time of the build, and
# what it is built with.
set(commit ${CMAKE_BINARY_DIR}/generated/Commit.inc)
add_custom_target(commit BYPRODUCTS ${commit}
  COMMAND ${CMAKE_COMMAND} -DSOURCE=${CMAKE_SOURCE_DIR} -DOUTPUT=${commit}
          -P ${CMAKE_SOURCE_DIR}/cmake/commit.cmake)
add_dependencies(OvixLog commit)
set(options AF_XDP)
if(TARGET OvixDpdk)
  list(APPEND options "DPDK ${DPDK_VERSION}")
endif()
foreach(option LTO SANITIZE FUZZ)
  if(OVIX_${option})
    list(APPEND options "${option}=${OVIX_${option}}")
  endif()
endforeach()
if(NOT OVIX_HARDENING STREQUAL on)
  list(APPEND options "HARDENING=${OVIX_HARDENING}")
endif()
list(JOIN options ", " options)
set(libraries "")
foreach(library PCAP MNL YAML SYSTEMD CAP MICROHTTPD)
  list(APPEND libraries "${${library}_MODULE_NAME} ${${library}_VERSION}")
endforeach()
foreach(library libxdp libbpf)
  list(APPEND libraries "${library} ${XDP_${library}_VERSION}")
endforeach()
pkg_check_modules(PROMETHEUS QUIET prometheus-cpp-core) # its package for cmake has no version
foreach(library fmt spdlog)
  list(APPEND libraries "${library} ${${library}_VERSION}")
endforeach()
list(APPEND libraries "prometheus-cpp ${PROMETHEUS_VERSION}")
list(JOIN libraries ", " libraries)
string(TOUPPER "CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}" flags)
string(REGEX MATCHALL "-[Og][^ ]*" flags "${CMAKE_CXX_FLAGS} ${${flags}}") # of packages also where they were built
list(JOIN flags " " flags)
set_source_files_properties(MplsVorn/OvixLog/Program/Version.cpp PROPERTIES
  SKIP_UNITY_BUILD_INCLUSION ON INCLUDE_DIRECTORIES ${CMAKE_BINARY_DIR}/generated
  COMPILE_DEFINITIONS "OVIX_VERSION=\"${PROJECT_VERSION}\";OVIX_OPTIONS=\"${options}\";OVIX_LIBRARIES=\"${libraries}\";OVIX_COMPILER=\"${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION} ${flags}\"")
