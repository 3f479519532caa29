# SPDX-License-Identifier: MIT
# Debian packages, written by scripts/package: the library, what building a host takes, the
# command line host, the Python package and the documentation. CMakeLists.txt includes this last, so
# that what is installed before can be worked on.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(package_components runtime development documentation)
if(DIFFUSEFILT_BUILD_HOSTS)
  list(APPEND package_components host)
endif()
if(DIFFUSEFILT_BUILD_PYTHON)
  list(APPEND package_components python)
endif()
set(CPACK_COMPONENTS_ALL ${package_components})
set(CPACK_PACKAGE_VENDOR "the diffusefilt_halide authors")
set(CPACK_PACKAGE_CONTACT "the diffusefilt_halide authors <maintainers@diffusefilt.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # that of each component is its first line
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://diffusefilt.example)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(this_version "libdiffusefilt-halide (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libdiffusefilt-halide)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
Smooths noise and keeps strong edges. A call filters a 2-D image or a 3-D
volume of floating-point elements once; results are defined to the last bit,
for any number of threads.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libdiffusefilt-halide-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${this_version}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libhalide14-0-dev, libdiffusefilt-halide-doc")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} - headers
Headers for C and C++ and files for CMake and pkg-config. Programs build with
these alone; libhalide14-0-dev has the rest of the runtime's declarations.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME libdiffusefilt-halide-doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION "${PROJECT_DESCRIPTION} - documentation
How to host libdiffusefilt-halide, the order of every sum, the binary
interface, file formats, Python, speed and reliability.")

# Debian has a program for the merging of texts that bears the same name.
set(CPACK_DEBIAN_HOST_PACKAGE_NAME diffusefilt-tools)
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_HOST_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "${this_version}")
set(CPACK_DEBIAN_HOST_PACKAGE_CONFLICTS diffuse)
set(CPACK_COMPONENT_HOST_DESCRIPTION "${PROJECT_DESCRIPTION} - command line
The program diffuse smooths PNG, TIFF, JPEG, NIfTI, NRRD and MetaImage files,
and such of BMP and DICOM into these, and keeps what they hold.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-diffusefilt)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${this_version}, python3 (>= 3.9), python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS
  "python3-dask, python3-distributed, python3-zarr, python3-xarray")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${package_folder}/python3-diffusefilt/postinst ${package_folder}/python3-diffusefilt/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "${PROJECT_DESCRIPTION} - Python
Smooths noise and keeps edges of NumPy, xarray and Dask arrays of any numeric
type, with a threshold that suits the noise found.")

# Runs a command over an installed file, in the packages alone.
function(package_finish component file)
  list(TRANSFORM ARGN PREPEND "\"")
  list(TRANSFORM ARGN APPEND "\"")
  list(JOIN ARGN " " command)
  install(CODE "execute_process(COMMAND ${command} \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${file}\" COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()
find_program(GZIP gzip REQUIRED)
# Debug information goes, the local names of the parallel bodies stay: docs/abi.md.
package_finish(runtime ${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:diffusefilt_halide>
  ${CMAKE_STRIP} --strip-debug)
if(DIFFUSEFILT_BUILD_HOSTS)
  package_finish(host ${CMAKE_INSTALL_BINDIR}/diffuse ${CMAKE_STRIP})
  package_finish(host ${CMAKE_INSTALL_MANDIR}/man1/diffuse.1 ${GZIP} -9nf)
endif()

# The copyright file: .reuse/dep5 and the texts that it names.
file(READ .reuse/dep5 copyright)
foreach(licence MIT BSD-3-Clause)
  file(READ LICENSES/${licence}.txt text)
  string(REGEX REPLACE "\n\n" "\n.\n" text "${text}")
  string(REGEX REPLACE "\n([^\n])" "\n \\1" text "${text}")
  string(APPEND copyright "\nLicense: ${licence}\n ${text}")
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS .reuse/dep5)
file(CONFIGURE OUTPUT copyright CONTENT "${copyright}" @ONLY)

# For the packages alone: what Debian asks of each, and the reasons why lintian is overruled.
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${package_folder}/changelog.in changelog @ONLY)
add_custom_command(OUTPUT changelog.gz
  COMMAND ${GZIP} -9nkf changelog DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog VERBATIM)
add_custom_target(package_changelog ALL DEPENDS changelog.gz)
foreach(component IN LISTS package_components)
  string(TOUPPER ${component} name)
  set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  if(EXISTS ${package_folder}/${package}.overrides)
    install(FILES ${package_folder}/${package}.overrides DESTINATION share/lintian/overrides
      RENAME ${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endforeach()
include(CPack)
