# velun is gone again after a moment, and looking up shared libraries would be most of its work: it
# is linked as a static position-independent executable where the toolchain can make one. Not as a
# plain -static one, whose start files register the unwind tables to be sorted at the first
# exception.

include(CheckCXXSourceCompiles)

set(velun_static_pie OFF)
if(VELUN_STATIC AND NOT VELUN_SANITIZE AND NOT VELUN_COVERAGE)
  set(CMAKE_REQUIRED_FLAGS -fPIE)
  set(CMAKE_REQUIRED_LINK_OPTIONS -static-pie)
  check_cxx_source_compiles("#include <iostream>\nint main() { std::cout << 1; }" has_static_pie)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  set(velun_static_pie ${has_static_pie})
  if(NOT velun_static_pie)
    message(WARNING "This toolchain links no static position-independent executable (are the "
      "static C and C++ libraries there?): velun is linked dynamically and starts more slowly. "
      "-DVELUN_STATIC=OFF asks for that without this warning.")
  endif()
endif()

# Sections of their own let the linker drop what nothing uses.
add_compile_options(-fPIE -ffunction-sections -fdata-sections)

# Links the executable as far as possible without what it does not use or would have to look up.
function(velun_link_for_start_up target)
  target_link_options(${target} PRIVATE
    -Wl,--gc-sections $<IF:$<BOOL:${velun_static_pie}>,-static-pie,-pie>)
endfunction()
