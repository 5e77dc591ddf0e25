# SPDX-License-Identifier: LicenseRef-qxkernel
# Compiler settings of every target of this project.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O3 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O3 -DNDEBUG")
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(QX_CCACHE ccache)
if(QX_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${QX_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${QX_CCACHE})
endif()

add_library(qx_flags INTERFACE)
# The first keeps the same bits on every machine: clones for wider vector units would otherwise fuse a*b+c into one
# rounding and narrower ones would not. The second lets loops over sqrt vectorise.
target_compile_options(qx_flags INTERFACE -ffp-contract=off -fno-math-errno)
target_compile_options(qx_flags INTERFACE -Wall -Wextra -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wno-sign-conversion>)
# gcc 12 sees overlaps in "text" + std::string that are not there.
target_compile_options(qx_flags INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
if(QX_WERROR)
  target_compile_options(qx_flags INTERFACE -Werror)
endif()
if(QX_SANITIZE)
  # For the whole tree and first on the command line, so that a target can take something back.
  add_compile_options(-fsanitize=${QX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(qx_flags INTERFACE -fsanitize=${QX_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang AND QX_SANITIZE MATCHES thread)
    # The tests replace operator new, which the static form of the runtime does not allow.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.tsan-${CMAKE_SYSTEM_PROCESSOR}.so
      OUTPUT_VARIABLE qx_runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
    get_filename_component(qx_runtime ${qx_runtime} DIRECTORY)
    target_link_options(qx_flags INTERFACE -shared-libsan -Wl,-rpath,${qx_runtime})
  endif()
endif()
if(QX_COVERAGE)
  # Of the conditions in the source; gcov counts the ways out of every call that may throw as branches.
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    message(FATAL_ERROR "QX_COVERAGE needs clang")
  endif()
  set(qx_coverage -fprofile-instr-generate -fcoverage-mapping) # of the library alone: see qx_add_subsystem
  target_link_options(qx_flags INTERFACE -fprofile-instr-generate)
endif()
