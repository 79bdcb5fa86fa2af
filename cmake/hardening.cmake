# What makes an error in velun harder to use against its user. Each flag is taken where the toolchain
# knows it. Sanitizers bring checks of their own, which some of these would blind; counters are for
# looking at branches, of which these would add their own; and in an unoptimised build the debugger is
# to see an uninitialised variable as it is.

include(CheckCXXSourceCompiles)

set(velun_hardening_compile)
set(velun_hardening_link)

# Adds compiler options, in `ARGN`, to what is used when they compile without a warning.
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
  # A distribution's compiler may define another level by itself.
  velun_try_hardening(has_fortify_source -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
  velun_try_hardening(has_library_assertions -D_GLIBCXX_ASSERTIONS)
  velun_try_hardening(has_zeroed_automatics -ftrivial-auto-var-init=zero)
  if(NOT has_zeroed_automatics)
    # Clang before 16 wants to hear that this might be taken away again.
    velun_try_hardening(has_zeroed_automatics_if_named -ftrivial-auto-var-init=zero
      -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
  endif()
  velun_try_linker_hardening(has_relro -Wl,-z,relro)
  velun_try_linker_hardening(has_immediate_binding -Wl,-z,now)
  velun_try_linker_hardening(has_noexecstack -Wl,-z,noexecstack)
endif()

# Compiles `target`, and links it where it is a program, with all of that.
function(velun_harden target)
  target_compile_options(${target} PRIVATE "$<$<NOT:$<CONFIG:Debug>>:${velun_hardening_compile}>")
  target_link_options(${target} PRIVATE "$<$<NOT:$<CONFIG:Debug>>:${velun_hardening_link}>")
endfunction()
