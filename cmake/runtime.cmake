# SPDX-License-Identifier: MIT
# The Halide runtime as one object file, written by a small program at build time. The
# program is built without our sanitizers: the compiler library it links is not ours.
# The order of its clean-ups is put right by runtime/finalisers.cpp, which lists them again.
find_package(Halide 14 REQUIRED)

add_executable(makeRuntime runtime/makeRuntime.cpp)
target_link_libraries(makeRuntime PRIVATE Halide::Halide)

set(runtime_object ${CMAKE_CURRENT_BINARY_DIR}/halide_runtime.o)
add_custom_command(
  OUTPUT ${runtime_object}
  COMMAND makeRuntime ${runtime_object}
  COMMAND ${CMAKE_OBJCOPY} --remove-section=.fini_array --remove-section=.rela.fini_array
          ${runtime_object}
  DEPENDS makeRuntime
  COMMENT "Writing the Halide runtime"
  VERBATIM)
add_custom_target(halide_runtime DEPENDS ${runtime_object})

# Halide's headers alone, for those who need only the records of the runtime.
add_library(halide_headers INTERFACE)
get_target_property(halide_include Halide::Halide INTERFACE_INCLUDE_DIRECTORIES)
target_include_directories(halide_headers SYSTEM INTERFACE ${halide_include})
