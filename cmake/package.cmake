# `cpack` packs an existing build; `./dev package` makes a new build first.

set(VELUN_PACKAGE_MAINTAINER "velun maintainers <velun@quorvane.example>"
    CACHE STRING "The packages' maintainer")
set(VELUN_PACKAGE_ARCHITECTURE "" CACHE STRING "The architecture in Debian's terms; if empty, that of the target")

set(architecture "${VELUN_PACKAGE_ARCHITECTURE}")
if(NOT architecture)
  string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR}" architecture)
  string(REGEX REPLACE "^x86_64$" amd64 architecture "${architecture}")
  string(REGEX REPLACE "^aarch64$" arm64 architecture "${architecture}")
endif()

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME velun)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME velun-${PROJECT_VERSION}-linux-${architecture})
set(CPACK_PACKAGE_CONTACT "${VELUN_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "command-line front end of a local privacy connector for AI tools")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "curl, ca-certificates")
set(CPACK_PACKAGE_DESCRIPTION "velun sets up the connector's daemon, velund, starts and stops it, shows
what it does, and downloads the detection model. In watch mode the daemon
records where the requests of AI tools go and what they cost; in protect
mode it replaces personal data before anything leaves the machine.
.
The daemon is a separate program and not part of this package.")

set(CPACK_VELUN_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/layout.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/pack_again.cmake)
include(CPack)
