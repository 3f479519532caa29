# SPDX-License-Identifier: MIT
# What all of our own code is compiled with. Nothing here, and nothing on the command
# line of the build, may let the compiler contract or reassociate: -ffp-contract=off is
# repeated for the element code, behind every other flag.
add_library(diffusefilt_options INTERFACE)
target_compile_options(diffusefilt_options INTERFACE -Wall -Wextra -Wpedantic -ffp-contract=off)
if(DIFFUSEFILT_SANITIZE)
  target_compile_options(diffusefilt_options INTERFACE
    -fsanitize=${DIFFUSEFILT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(diffusefilt_options INTERFACE -fsanitize=${DIFFUSEFILT_SANITIZE})
endif()
