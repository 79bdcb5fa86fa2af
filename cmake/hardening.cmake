# Compiler and linker options that make memory errors harder to exploit. Each is used if the toolchain
# knows it. Builds with sanitizers or coverage have none: some options would hide errors from the
# sanitizers or add branches to the counts. Unoptimised builds have none either: zeroed
# variables would hide uninitialised ones from the debugger.

include(CheckCXXSourceCompiles)

set(velun_hardening_compile)
set(velun_hardening_link)

# Uses the compiler options in `ARGN` if they compile without a warning.
function(velun_try_hardening name)
  string(REPLACE ";" " " CMAKE_REQUIRED_FLAGS "-O2 -Werror ${ARGN}")
  check_cxx_source_compiles("#include <string>\nint main() { return 0; }" ${name})
  if(${name})
    set(velun_hardening_compile ${velun_hardening_compile} ${ARGN} PARENT_SCOPE)
  endif()
endfunction()

function(velun_try_linker_hardening name option)
  set(CMAKE_REQUIRED_LINK_OPTIONS ${option} -Wl,--fatal-warnings)
  check_cxx_source_compiles("int main() { return 0; }" ${name})
  if(${name})
    set(velun_hardening_link ${velun_hardening_link} ${option} PARENT_SCOPE)
  endif()
endfunction()

if(NOT VELUN_SANITIZE AND NOT VELUN_COVERAGE)
  velun_try_hardening(has_stack_protector -fstack-protector-strong)
  velun_try_hardening(has_stack_clash_protection -fstack-clash-protection)
  velun_try_hardening(has_control_flow_protection -fcf-protection=full)    # x86
  velun_try_hardening(has_branch_protection -mbranch-protection=standard)  # Arm
  # The compilers of some distributions define another level by default.
  velun_try_hardening(has_fortify_source -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
  velun_try_hardening(has_library_assertions -D_GLIBCXX_ASSERTIONS)
  velun_try_hardening(has_zeroed_automatics -ftrivial-auto-var-init=zero)
  if(NOT has_zeroed_automatics)
    # Clang before 16 demands a second flag, which says that the first may be removed.
    velun_try_hardening(has_zeroed_automatics_if_named -ftrivial-auto-var-init=zero
      -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
  endif()
  velun_try_linker_hardening(has_relro -Wl,-z,relro)
  velun_try_linker_hardening(has_immediate_binding -Wl,-z,now)
  velun_try_linker_hardening(has_noexecstack -Wl,-z,noexecstack)
endif()

# Compiles `target` with these options, and links it with them if it is a program.
function(velun_harden target)
  target_compile_options(${target} PRIVATE "$<$<NOT:$<CONFIG:Debug>>:${velun_hardening_compile}>")
  target_link_options(${target} PRIVATE "$<$<NOT:$<CONFIG:Debug>>:${velun_hardening_link}>")
endfunction()
