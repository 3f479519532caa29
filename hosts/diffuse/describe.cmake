# SPDX-License-Identifier: MIT
# Writes the manual and the completions into FOLDER from what PROGRAM tells of its options: the manual
# around that from MANUAL.
foreach(reader mdoc bash zsh)
  execute_process(COMMAND ${PROGRAM} --describe ${reader}
    OUTPUT_VARIABLE ${reader} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
string(STRIP "${mdoc}" OPTIONS)
configure_file(${MANUAL} ${FOLDER}/diffuse.1 @ONLY)
file(WRITE ${FOLDER}/diffuse.bash "${bash}")
file(WRITE ${FOLDER}/_diffuse "${zsh}")
