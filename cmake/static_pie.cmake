# Links velun as a static position-independent executable if the toolchain can make one: loading shared
# libraries would take longer than most commands. A plain -static executable would register its unwind
# tables and have to sort them at the first exception.

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
    message(WARNING "This toolchain cannot link a static position-independent executable (are the "
      "static C and C++ libraries installed?): velun is linked dynamically and starts more slowly. "
      "With -DVELUN_STATIC=OFF this warning is not shown.")
  endif()
endif()

# Puts each function into its own section, so the linker can drop unused ones.
add_compile_options(-fPIE -ffunction-sections -fdata-sections)

# Links the executable without unused code and, if possible, without shared libraries.
function(velun_link_for_start_up target)
  target_link_options(${target} PRIVATE
    -Wl,--gc-sections $<IF:$<BOOL:${velun_static_pie}>,-static-pie,-pie>)
endfunction()
