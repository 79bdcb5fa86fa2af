# Installs velun where the shells, man and systemd look for its files. It installs no daemon: velund is
# a separate program.

include(GNUInstallDirs)
set(VELUN_ZSH_COMPLETIONS_DIR "${CMAKE_INSTALL_DATADIR}/zsh/site-functions"
    CACHE STRING "Where zsh looks for completions")
set(VELUN_SYSTEMD_USER_DIR "lib/systemd/user"
    CACHE STRING "Where systemd looks for the units of users")
set(velun_bash_completions_dir "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
set(velun_fish_completions_dir "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")

# Fills in the version and the mirror.
configure_file(man/velun.1.in man/velun.1 @ONLY)
configure_file(man/velun.yaml.5.in man/velun.yaml.5 @ONLY)

include(cmake/linked_in.cmake)

# Runs during the installation, because the prefix may be chosen only then.
configure_file(cmake/prepare_install.cmake.in prepare_install.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/prepare_install.cmake)

install(TARGETS velun)
install(FILES ${PROJECT_BINARY_DIR}/man/velun.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_BINARY_DIR}/man/velun.yaml.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES completions/velun.bash DESTINATION ${velun_bash_completions_dir} RENAME velun)
install(FILES completions/_velun DESTINATION ${VELUN_ZSH_COMPLETIONS_DIR})
install(FILES completions/velun.fish DESTINATION ${velun_fish_completions_dir})
install(FILES ${PROJECT_BINARY_DIR}/velun.service DESTINATION ${VELUN_SYSTEMD_USER_DIR})
install(FILES ${PROJECT_BINARY_DIR}/linked-in.txt DESTINATION ${CMAKE_INSTALL_DOCDIR})
foreach(document README.md SECURITY.md CHANGELOG.md LICENSE)
  if(EXISTS ${PROJECT_SOURCE_DIR}/${document})
    install(FILES ${document} DESTINATION ${CMAKE_INSTALL_DOCDIR})
  endif()
endforeach()

add_custom_target(uninstall
  COMMAND ${CMAKE_COMMAND} -D "BUILD=${PROJECT_BINARY_DIR}" -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake
  VERBATIM)
