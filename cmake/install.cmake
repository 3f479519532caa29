# SPDX-License-Identifier: MIT
# What a host gets: component `runtime` is the library, `development` what building against it
# takes, `documentation` what there is to read. Every file finds the others by relative paths: the tree may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_CURRENT_LIST_DIR}/package)
set(package_cmakedir ${CMAKE_INSTALL_LIBDIR}/cmake/diffusefilt_halide)
set(package_pkgconfigdir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS diffusefilt_halide EXPORT diffusefilt_halide
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN *.h PATTERN *.hpp)
install(FILES README.md CHANGELOG.md CITATION.cff LICENSE THIRD-PARTY.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)

# find_package(diffusefilt_halide)
install(EXPORT diffusefilt_halide NAMESPACE diffusefilt_halide::
  FILE diffusefilt_halideTargets.cmake DESTINATION ${package_cmakedir} COMPONENT development)
configure_package_config_file(${package_folder}/diffusefilt_halideConfig.cmake.in
  diffusefilt_halideConfig.cmake INSTALL_DESTINATION ${package_cmakedir}
  NO_SET_AND_CHECK_MACRO)
# What a major number keeps stands in docs/abi.md.
write_basic_package_version_file(diffusefilt_halideConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/diffusefilt_halideConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/diffusefilt_halideConfigVersion.cmake
  DESTINATION ${package_cmakedir} COMPONENT development)

# What hosts/python/setup.py puts beside the modules of a wheel.
install(TARGETS diffusefilt_halide LIBRARY DESTINATION . COMPONENT wheel EXCLUDE_FROM_ALL)

# pkg-config diffusefilt_halide
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_PREFIX}/${package_pkgconfigdir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
configure_file(${package_folder}/diffusefilt_halide.pc.in diffusefilt_halide.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/diffusefilt_halide.pc
  DESTINATION ${package_pkgconfigdir} COMPONENT development)
