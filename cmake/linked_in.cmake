# Writes the list of libraries that are linked into velun, with their licences as SPDX identifiers, for
# redistributors. The versions are those that this build found.

file(WRITE ${PROJECT_BINARY_DIR}/linked_in.cc
  "#include <string>\nlibraries=_GLIBCXX_RELEASE;__GLIBC__.__GLIBC_MINOR__;_LIBCPP_VERSION\n")
separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${flags} -std=c++20 -E -P ${PROJECT_BINARY_DIR}/linked_in.cc
  OUTPUT_VARIABLE preprocessed ERROR_QUIET)
set(gcc_version "not known")
set(glibc_version "not known")
if(preprocessed MATCHES "libraries=([0-9]+);([0-9]+ ?\\. ?[0-9]+);")
  set(gcc_version "${CMAKE_MATCH_1}")
  string(REPLACE " " "" glibc_version "${CMAKE_MATCH_2}")
endif()

set(velun_linked_in)
function(velun_add_linked_in name version licence)
  string(APPEND velun_linked_in "\n${name}\n  version: ${version}\n  licence: ${licence}\n")
  set(velun_linked_in "${velun_linked_in}" PARENT_SCOPE)
endfunction()

velun_add_linked_in("Boost (headers of Asio, Beast, System and what they use)" "${Boost_VERSION}" BSL-1.0)
velun_add_linked_in("nlohmann JSON (headers)" "${nlohmann_json_VERSION}" MIT)
if(velun_static_pie)
  velun_add_linked_in("GNU C++ library, libstdc++ (of GCC)" "${gcc_version}"
    "GPL-3.0-or-later WITH GCC-exception-3.1")
  velun_add_linked_in("GCC runtime library, libgcc and libgcc_eh" "${gcc_version}"
    "GPL-3.0-or-later WITH GCC-exception-3.1")
  velun_add_linked_in("GNU C library, glibc" "${glibc_version}" LGPL-2.1-or-later)
else()
  string(APPEND velun_linked_in
    "\nThe C and C++ libraries are not among them: velun loads them when it starts.\n")
endif()
configure_file(packaging/linked-in.txt.in linked-in.txt @ONLY)
