# What is installed, in three components: library, dev (what building against it takes) and tools. Packages follow
# the components (BrimPackages.cmake).
include(CMakePackageConfigHelpers)

# The libraries find each other beside each other.
set_target_properties(brimportable PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS brimportable EXPORT brimportableTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev)
install(DIRECTORY server/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")

# A product home, in the layout that the library looks for: HX_PRODUCT_HOME=<prefix>/share/brimportable.
set(BRIM_INSTALL_PRODUCT_HOME ${CMAKE_INSTALL_DATADIR}/brimportable)
install(FILES share/locale/BrimLocale.xml
  DESTINATION ${BRIM_INSTALL_PRODUCT_HOME}/hxfoundation/server/locale COMPONENT library)

# gdb loads it with the library whose path it mirrors.
install(FILES share/gdb/brimportable.py
  DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
  RENAME libbrimportable.so.${PROJECT_VERSION}-gdb.py COMPONENT dev)

install(DIRECTORY docs/guide examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
if(BRIM_BUILD_TOOLS)
  # Compressed, as the policy for packages asks and every man reads.
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
  execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/docs/man/brimtool.1
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/man/brimtool.1.gz COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${PROJECT_BINARY_DIR}/man/brimtool.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES share/bash-completion/completions/brimtool
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()

# For find_package(brimportable).
set(_brim_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/brimportable)
configure_package_config_file(cmake/brimportableConfig.cmake.in ${PROJECT_BINARY_DIR}/brimportableConfig.cmake
  INSTALL_DESTINATION ${_brim_cmake_dir} PATH_VARS BRIM_INSTALL_PRODUCT_HOME)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/brimportableConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(EXPORT brimportableTargets NAMESPACE brimportable:: DESTINATION ${_brim_cmake_dir} COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/brimportableConfig.cmake ${PROJECT_BINARY_DIR}/brimportableConfigVersion.cmake
  DESTINATION ${_brim_cmake_dir} COMPONENT dev)

# For pkg-config. The prefix is told relative to the file, so that a moved tree still works; pkg-config knows the
# system's own directories by their plain names only.
set(_brim_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(BRIM_PC_PREFIX /usr)
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(RELATIVE_PATH BRIM_PC_PREFIX /${_brim_pkgconfig_dir}/. /)
  string(REGEX REPLACE "/$" "" BRIM_PC_PREFIX "\${pcfiledir}/${BRIM_PC_PREFIX}")
endif()
foreach(name IN ITEMS brimportable brimportable-xml)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${_brim_pkgconfig_dir} COMPONENT dev)
endforeach()

# Packages are for the system's own place.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  include(cmake/packaging/BrimPackages.cmake)
endif()
