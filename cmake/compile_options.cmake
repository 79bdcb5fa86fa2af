# The warnings, sanitizers and counters of the developer presets; a plain build has none of them.

include(CheckCXXCompilerFlag)

set(velun_strict_flags)
if(VELUN_STRICT)
  # Ninja prints a command that fails; its options go to a file to keep that short.
  set(CMAKE_NINJA_FORCE_RESPONSE_FILE ON)
  foreach(flag
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
      -Wcast-align -Wcast-qual -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference
      -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wuseless-cast -Wdouble-promotion
      -Wformat=2 -Wimplicit-fallthrough -Wextra-semi -Wunused)
    string(MAKE_C_IDENTIFIER "has${flag}" has_flag)
    check_cxx_compiler_flag(${flag} ${has_flag})
    if(${has_flag})
      list(APPEND velun_strict_flags ${flag})
    endif()
  endforeach()
  list(APPEND velun_strict_flags -Werror)
endif()

# Compiles and links `target` with the options of the preset.
function(velun_compile_options target)
  target_compile_options(${target} PRIVATE ${velun_strict_flags})
  if(VELUN_SANITIZE)
    set(sanitizers
      -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
    target_compile_options(${target} PRIVATE ${sanitizers})
    target_link_options(${target} PRIVATE ${sanitizers})
  endif()
  if(VELUN_FUZZ)
    # no-link: only the targets get libFuzzer's main function.
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
  if(VELUN_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

# Sets the options of a source that uses Asio or Beast. GCC wrongly warns of null pointers in their
# inlined code. Older releases of Boost use std::result_of, which C++20 has dropped; the first macro
# makes them use std::invoke_result. Beast's parser asserts that a chunked answer does not end in very
# small pieces; such an answer is valid and must not abort velun.
function(velun_uses_asio source)
  set_source_files_properties(${source} PROPERTIES
    COMPILE_DEFINITIONS "BOOST_ASIO_HAS_STD_INVOKE_RESULT;BOOST_DISABLE_ASSERTS")
  if("-Wnull-dereference" IN_LIST velun_strict_flags)
    set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS -Wno-null-dereference)
  endif()
endfunction()
