# find_package(poa) and pkg-config for an installed tree, which may be moved as a whole.

if(NOT TARGET poa)
  message(STATUS "install: library poa is not built, no package files")
  return()
endif()

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/poa)

install(EXPORT poaTargets NAMESPACE poa:: DESTINATION ${package_dir})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/poaConfig.cmake.in ${PROJECT_BINARY_DIR}/poaConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/poaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/poaConfig.cmake ${PROJECT_BINARY_DIR}/poaConfigVersion.cmake ${PROJECT_SOURCE_DIR}/cmake/PoaIdl.cmake
  DESTINATION ${package_dir})

# The prefix as seen from the directory of poa.pc, so that no absolute path is written down.
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_to_prefix ${pc_to_prefix})
configure_file(${PROJECT_SOURCE_DIR}/cmake/poa.pc.in ${PROJECT_BINARY_DIR}/poa.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/poa.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
