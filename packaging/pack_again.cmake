# CPack runs this after it has made a package. CPack packs an archive in the order of the file system
# and with the builder as owner. This packs it again in a fixed order and with root as owner.
cmake_minimum_required(VERSION 3.22)

if(CPACK_GENERATOR STREQUAL "TGZ")
  foreach(archive IN LISTS CPACK_PACKAGE_FILES)
    set(time)
    if(DEFINED ENV{SOURCE_DATE_EPOCH})
      set(time --mtime=@$ENV{SOURCE_DATE_EPOCH})
    endif()
    execute_process(
      COMMAND tar --create --sort=name --owner=0 --group=0 --numeric-owner --mode=u=rwX,go=rX ${time}
              --directory "${CPACK_TOPLEVEL_DIRECTORY}" "${CPACK_PACKAGE_FILE_NAME}"
      COMMAND gzip -9n
      OUTPUT_FILE "${archive}"
      COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
endif()
