# SPDX-License-Identifier: MIT
# Fails unless the README shows the program as it is built, but for the line of its licence.
file(READ ${README} readme)
file(READ ${PROGRAM} program)
string(REGEX REPLACE "^// SPDX[^\n]*\n" "" program "${program}")
string(FIND "${readme}" "${program}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "${README} does not show ${PROGRAM} as it stands")
endif()
