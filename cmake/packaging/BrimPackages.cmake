# Debian packages, one a component: libbrimportable1, libbrimportable-dev, brimportable-tools. scripts/package builds
# them.
set(BRIM_MAINTAINER "brimportable maintainers <maintainers@brimportable.example>" CACHE STRING
  "Who answers for the Debian packages")
set(BRIM_LIBRARY_PACKAGE libbrimportable${PROJECT_VERSION_MAJOR})
set(_release 1)
set(_packaging ${PROJECT_BINARY_DIR}/packaging)
set(_templates ${CMAKE_CURRENT_LIST_DIR})

# What every package says about itself; the date follows SOURCE_DATE_EPOCH.
set(BRIM_PACKAGE_VERSION ${PROJECT_VERSION}-${_release})
string(TIMESTAMP BRIM_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${_templates}/changelog.Debian.in ${_packaging}/changelog.Debian @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${_packaging}/changelog COPYONLY)
execute_process(COMMAND gzip -9nfk changelog changelog.Debian
  WORKING_DIRECTORY ${_packaging} COMMAND_ERROR_IS_FATAL ANY)
foreach(pair IN ITEMS library:${BRIM_LIBRARY_PACKAGE} dev:libbrimportable-dev tools:brimportable-tools)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  string(TOUPPER ${component} id)
  set(CPACK_DEBIAN_${id}_PACKAGE_NAME ${package})
  install(FILES ${_templates}/copyright ${_packaging}/changelog.gz ${_packaging}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endforeach()

# The linker's cache, and what others that are built against the library depend on.
file(CONFIGURE OUTPUT ${_packaging}/triggers CONTENT "activate-noawait ldconfig\n")
file(CONFIGURE OUTPUT ${_packaging}/shlibs
  CONTENT "libbrimportable ${PROJECT_VERSION_MAJOR} ${BRIM_LIBRARY_PACKAGE} (>= ${PROJECT_VERSION})\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # the first line of each description is the summary
set(CPACK_PACKAGE_CONTACT "${BRIM_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${_release})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "portable utility library: strings, code pages, operating system
Shared copy-on-write strings, byte strings, string buffers, conversion between
encodings, the directory layout of an installed instance, and failure
reporting, for server processes and their tools.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
# The allocator library opens it by name, which no tool sees.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS libmimalloc2.0)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${_packaging}/triggers ${_packaging}/shlibs)

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "portable utility library: development files
Headers, and what CMake and pkg-config need to build programs against it.")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${BRIM_LIBRARY_PACKAGE} (= ${BRIM_PACKAGE_VERSION})")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "libxerces-c-dev, libfmt-dev")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "portable utility library: command-line tool
brimtool converts files between encodings and shows what the library knows.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# It also uses what the library exports for its own family.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${BRIM_LIBRARY_PACKAGE} (= ${BRIM_PACKAGE_VERSION})")
include(CPack)
