# Installs the libraries, the public headers and a CMake package, so that
# find_package(wavestore) gives the targets wavestore::wavestore and wavestore::host.
include(CMakePackageConfigHelpers)

set(WAVESTORE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/wavestore)

install(TARGETS wavestore_host wavestore
  EXPORT wavestoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${CMAKE_INSTALL_INCLUDEDIR}/wavestore)

install(DIRECTORY src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wavestore
  FILES_MATCHING PATTERN "*.h")
install(FILES include/wavestore/wavestore.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wavestore)

install(EXPORT wavestoreTargets NAMESPACE wavestore:: DESTINATION ${WAVESTORE_CMAKE_DIR})

configure_package_config_file(cmake/wavestoreConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/wavestoreConfig.cmake
  INSTALL_DESTINATION ${WAVESTORE_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/wavestoreConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/wavestoreConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/wavestoreConfigVersion.cmake
  DESTINATION ${WAVESTORE_CMAKE_DIR})
