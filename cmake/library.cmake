# SPDX-License-Identifier: MIT
# libdiffusefilt_halide.so
find_package(TBB REQUIRED)

# Neither the element code nor the frame holds anything that an exception would have to
# clean up. One of a host's hook passes through the frame on its unwind tables; element
# code has none, so that nothing passes a parallel body. Neither imports anything but what
# it calls by name. Element code calls exp and floorf through the table of addresses itself, not
# by a jump of the procedure linkage table.
set(diffusefilt_plain -fno-exceptions -fno-stack-protector)
set(diffusefilt_element
  ${diffusefilt_plain} -fno-unwind-tables -fno-asynchronous-unwind-tables -fno-plt)
# The neighbours are independent chains of up to thirty operations each. Scheduled before
# registers are given out, they stand interleaved. Coordinates are clamped in general registers.
list(APPEND diffusefilt_element
  $<$<CXX_COMPILER_ID:GNU>:-fschedule-insns> $<$<CXX_COMPILER_ID:GNU>:-fsched-pressure>
  $<$<CXX_COMPILER_ID:GNU>:-mno-stv>)
if(DIFFUSEFILT_SANITIZE)
  list(APPEND diffusefilt_element -O1 -g1)  # a quarter of the compile time of -O2 -g
endif()
if(DIFFUSEFILT_SANITIZE MATCHES memory)
  # Optimised code leaves the lanes of a vector undefined that nothing depends on.
  list(APPEND diffusefilt_element -O0)
endif()

# The element code, compiled once for each instruction set. -march=x86-64, which all of the
# library has, fixes the processor, whatever the build was given; the flags here say what
# the set may and may not use beyond it.
function(diffusefilt_element_objects set)
  add_library(diffusefilt_${set} OBJECT diffusefilt_halide/schedules/${set}.cpp)
  target_compile_options(diffusefilt_${set} PRIVATE
    ${ARGN} -ffp-contract=off ${diffusefilt_element})
  target_link_libraries(diffusefilt_${set} PRIVATE diffusefilt_common)
endfunction()

add_library(diffusefilt_common INTERFACE)
target_include_directories(diffusefilt_common INTERFACE diffusefilt_halide include)
target_compile_options(diffusefilt_common INTERFACE
  -march=x86-64 -fPIC -fvisibility=hidden $<$<CXX_COMPILER_ID:Clang>:-fsemantic-interposition>)
target_link_libraries(diffusefilt_common INTERFACE diffusefilt_options halide_headers)

# g++ would put its own floor in place of the call that none makes, and keep constants on the stack
# from one call to the next; in avx it would read 32 bytes in two halves, as the first processors of
# the set prefer. In avx and avx2 it would form differences of the rows' addresses anew in each row,
# instead of the addresses; in none it orders two loops better with them.
set(keep_addresses $<$<CXX_COMPILER_ID:GNU>:-fno-ivopts>)
diffusefilt_element_objects(none -msse2 -mno-sse3 -fno-builtin-floorf
  $<$<CXX_COMPILER_ID:GNU>:-fno-gcse>)
diffusefilt_element_objects(avx -mavx -mno-avx2 -mno-fma ${keep_addresses}
  $<$<CXX_COMPILER_ID:GNU>:-mno-avx256-split-unaligned-load>)
diffusefilt_element_objects(avx2 -mavx2 -mfma -mbmi ${keep_addresses})

# The frame is baseline code.
add_library(diffusefilt_frame OBJECT
  diffusefilt_halide/frame/boundsQuery.cpp
  diffusefilt_halide/frame/checkLadder.cpp
  diffusefilt_halide/frame/entry.cpp
  diffusefilt_halide/frame/exports.cpp
  diffusefilt_halide/frame/regions.cpp)
target_compile_options(diffusefilt_frame PRIVATE ${diffusefilt_plain})
if(DIFFUSEFILT_FUZZ AND NOT DIFFUSEFILT_SANITIZE MATCHES memory)
  target_compile_options(diffusefilt_frame PRIVATE -fsanitize=fuzzer-no-link)  # feedback
endif()
target_link_libraries(diffusefilt_frame PRIVATE diffusefilt_common)

add_library(diffusefilt_halide SHARED
  diffusefilt_halide/registerTBB.cpp
  runtime/finalisers.cpp
  wrap_memcpy/memcpy_glibc225_pic.cpp
  $<TARGET_OBJECTS:diffusefilt_frame>
  $<TARGET_OBJECTS:diffusefilt_avx>
  $<TARGET_OBJECTS:diffusefilt_avx2>
  $<TARGET_OBJECTS:diffusefilt_none>)
add_dependencies(diffusefilt_halide halide_runtime)
target_link_libraries(diffusefilt_halide PRIVATE
  ${runtime_object} diffusefilt_common TBB::tbb
  -Wl,--push-state,--no-as-needed $<TARGET_FILE:TBB::tbbmalloc> -Wl,--pop-state
  m)
target_include_directories(diffusefilt_halide INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)

# Hosts find the library by its path; its own dependencies are looked for beside it first.
set(exports_map ${CMAKE_CURRENT_SOURCE_DIR}/diffusefilt_halide/exports.map)
set_target_properties(diffusefilt_halide PROPERTIES
  NO_SONAME ON
  BUILD_WITH_INSTALL_RPATH ON
  INSTALL_RPATH "$ORIGIN;$ORIGIN/../lib;$ORIGIN/../../lib"
  LINK_DEPENDS "${exports_map};${runtime_object}")
# Nothing is bound symbolically: a definition that stands earlier in the lookup order of the
# process replaces ours. Kept mapped: to unload it under TBB's sleeping workers is to crash.
target_link_options(diffusefilt_halide PRIVATE
  -Wl,--version-script=${exports_map} -Wl,--wrap=memcpy
  -Wl,-z,nodelete -Wl,--disable-new-dtags
  # Tables of addresses are bound at load and then read-only; nothing else changes.
  -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,text)
if(NOT DIFFUSEFILT_SANITIZE)
  target_link_options(diffusefilt_halide PRIVATE -Wl,-z,defs)
endif()

# What our own programs link, by the name that other hosts know it by: a library without soname must
# be found by -l, or a program records the path that the linker was given.
add_library(diffusefilt_halide::diffusefilt_halide SHARED IMPORTED GLOBAL)
set_target_properties(diffusefilt_halide::diffusefilt_halide PROPERTIES
  IMPORTED_LOCATION ${PROJECT_BINARY_DIR}/libdiffusefilt_halide.so
  IMPORTED_NO_SONAME ON
  INTERFACE_INCLUDE_DIRECTORIES ${PROJECT_SOURCE_DIR}/include)
set_target_properties(diffusefilt_halide PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
add_dependencies(diffusefilt_halide::diffusefilt_halide diffusefilt_halide)
