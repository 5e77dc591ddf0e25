# SPDX-License-Identifier: LicenseRef-qxkernel
# Runs a program and compares all that it prints with a file.
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND ${PROGRAM} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
file(READ ${WANTED} wanted)
if(NOT status EQUAL 0 OR NOT errors STREQUAL "" OR NOT output STREQUAL wanted)
  message(FATAL_ERROR "${PROGRAM} ends with ${status}, says '${errors}' and prints\n${output}and not\n${wanted}")
endif()
