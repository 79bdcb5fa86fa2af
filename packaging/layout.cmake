# CPack runs this after the installation and before packing. It does the steps that depend on the kind
# of package, below the directory to be packed.
cmake_minimum_required(VERSION 3.22)

set(root "${CPACK_TEMPORARY_INSTALL_DIRECTORY}")

# The licence of the JSON library requires its notice to accompany the program.
function(take_notice docdir)
  set(notice /usr/share/doc/nlohmann-json3-dev/copyright)
  if(EXISTS ${notice})
    configure_file(${notice} "${docdir}/nlohmann-json.copyright" COPYONLY)
  else()
    message(WARNING "The notice of nlohmann JSON is not at ${notice}: add it to the package.")
  endif()
endfunction()

function(compress file)
  execute_process(COMMAND gzip -9n "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Turns a text into a paragraph of a Debian control file.
function(indented text result)
  string(REGEX REPLACE "\n\n" "\n.\n" text "${text}")
  string(REGEX REPLACE "\n\n" "\n.\n" text "${text}")
  string(STRIP "${text}" text)
  string(REPLACE "\n" "\n " text " ${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(write_copyright docdir)
  string(TIMESTAMP year "%Y" UTC)
  indented("The owner of velun has named no licence yet." licence)
  if(EXISTS "${docdir}/LICENSE")
    file(READ "${docdir}/LICENSE" licence)
    indented("${licence}" licence)
    file(REMOVE "${docdir}/LICENSE")
  endif()
  configure_file("${CPACK_VELUN_SOURCE}/packaging/copyright.in" "${docdir}/copyright" @ONLY)
endfunction()

function(lay_out_debian)
  set(docdir "${root}/usr/share/doc/velun")
  take_notice("${docdir}")
  write_copyright("${docdir}")
  # Debian's zsh reads the completions of packages from another directory.
  file(RENAME "${root}/usr/share/zsh/site-functions" "${root}/usr/share/zsh/vendor-completions")
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  configure_file("${CPACK_VELUN_SOURCE}/packaging/changelog.in" "${docdir}/changelog.Debian" @ONLY)
  configure_file("${CPACK_VELUN_SOURCE}/packaging/lintian-overrides"
    "${root}/usr/share/lintian/overrides/velun" COPYONLY)
  if(EXISTS "${docdir}/CHANGELOG.md")
    file(RENAME "${docdir}/CHANGELOG.md" "${docdir}/changelog")
    compress("${docdir}/changelog")
  endif()
  compress("${docdir}/changelog.Debian")
  compress("${root}/usr/share/man/man1/velun.1")
  compress("${root}/usr/share/man/man5/velun.yaml.5")
endfunction()

# Users unpack the archive below /usr/local, but CPack installed it below a staging directory.
function(lay_out_archive)
  take_notice("${root}/share/doc/velun")
  set(bindir /usr/local/bin)
  configure_file("${CPACK_VELUN_SOURCE}/packaging/velun.service.in"
    "${root}/lib/systemd/user/velun.service" @ONLY)
endfunction()

if(CPACK_GENERATOR STREQUAL "DEB")
  lay_out_debian()
else()
  lay_out_archive()
endif()
