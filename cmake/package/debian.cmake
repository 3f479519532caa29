# Debian packages, written by scripts/package. What runs a host needs TBB alone, what builds one
# needs HalideRuntime.h, whose package brings a whole compiler along; the third is for Python.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(package_components runtime development)
if(DIFFUSEFILT_BUILD_PYTHON)
  list(APPEND package_components python)
endif()
set(CPACK_COMPONENTS_ALL ${package_components})
set(CPACK_PACKAGE_VENDOR "diffusefilt_halide maintainers")
set(CPACK_PACKAGE_CONTACT "diffusefilt_halide maintainers <maintainers@diffusefilt.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # that of each component is its first line

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libdiffusefilt-halide)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
Smooths noise and keeps strong edges. A call filters a 2-D image or a 3-D
volume of floating-point elements once; results are defined to the last bit,
for any number of threads.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libdiffusefilt-halide-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libdiffusefilt-halide (= ${PROJECT_VERSION}), libhalide14-0-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} - headers
Headers for C and C++, files for CMake and pkg-config, and the documentation
of libdiffusefilt-halide.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-diffusefilt)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "libdiffusefilt-halide (= ${PROJECT_VERSION}), python3 (>= 3.9), python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS
  "python3-dask, python3-distributed, python3-zarr, python3-xarray")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${package_folder}/python3-diffusefilt/postinst ${package_folder}/python3-diffusefilt/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "${PROJECT_DESCRIPTION} - Python
Smooths noise and keeps edges of NumPy, xarray and Dask arrays of any numeric
type, with a threshold that suits the noise found.")

# Debug information goes, the local names of the parallel bodies stay: docs/abi.md.
install(CODE "execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:diffusefilt_halide>\" COMMAND_ERROR_IS_FATAL ANY)"
  COMPONENT runtime EXCLUDE_FROM_ALL)

# For the packages alone: what Debian asks of each, and the reasons why lintian is overruled.
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${package_folder}/changelog.in changelog @ONLY)
find_program(GZIP gzip REQUIRED)
add_custom_command(OUTPUT changelog.gz
  COMMAND ${GZIP} -9nkf changelog DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog VERBATIM)
add_custom_target(package_changelog ALL DEPENDS changelog.gz)
foreach(component IN LISTS package_components)
  string(TOUPPER ${component} name)
  set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  install(FILES ${package_folder}/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  if(EXISTS ${package_folder}/${package}.overrides)
    install(FILES ${package_folder}/${package}.overrides DESTINATION share/lintian/overrides
      RENAME ${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endforeach()
include(CPack)
