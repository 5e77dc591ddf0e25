# SPDX-License-Identifier: LicenseRef-qxkernel
# Installs the build into a fresh prefix, builds the consumer against it by find_package and by pkg-config, runs both.
# The prefix is not the configured one: what is installed must be relocatable.
cmake_minimum_required(VERSION 3.25)
set(work ${BUILD}/install_test)
set(prefix ${work}/prefix)
file(REMOVE_RECURSE ${work})

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${work} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(status)
    string(JOIN " " words ${ARGN})
    message(FATAL_ERROR "failed: ${words}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(MAKE_DIRECTORY ${work})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${work}/cmake -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -G Ninja)
run(${CMAKE_COMMAND} --build ${work}/cmake)
run(${work}/cmake/consumer)
if(NOT output MATCHES "^${VERSION} ")
  message(FATAL_ERROR "the library says that it is version ${output}")
endif()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(pkg-config --cflags --libs qxkernel)
string(REGEX MATCHALL "[^ \n]+" flags "${output}")
run(${CXX} -std=c++20 -o ${work}/consumer ${work}/cmake/all_headers.cpp ${CONSUMER}/main.cpp ${flags})
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${work}/consumer)

# The program in the README, as a reader copies it, and what it is said to print.
file(READ ${README} readme)
string(REGEX MATCH "```cpp\n(.*)```\n\nprints\n\n```\n([^`]*)```\n" found "${readme}")
if(NOT found)
  message(FATAL_ERROR "the README shows no program with what it prints")
endif()
set(wanted "${CMAKE_MATCH_2}")
file(WRITE ${work}/readme.cpp "${CMAKE_MATCH_1}")
run(${CXX} -std=c++20 -o ${work}/readme ${work}/readme.cpp ${flags})
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${work}/readme)
if(NOT output STREQUAL wanted)
  message(FATAL_ERROR "the program in the README prints\n${output}and not\n${wanted}")
endif()

# The README's lines for CMake, as a reader copies them, nothing about the language standard added.
string(REGEX MATCH "```cmake\n([^`]*)```" found "${readme}")
if(NOT found)
  message(FATAL_ERROR "the README shows no lines for CMake")
endif()
set(wanted_lines "${CMAKE_MATCH_1}")
file(MAKE_DIRECTORY ${work}/from_readme)
file(WRITE ${work}/from_readme/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)\nproject(reader LANGUAGES CXX)\n"
  "add_executable(your_program ${work}/readme.cpp)\n${wanted_lines}")
run(${CMAKE_COMMAND} -S ${work}/from_readme -B ${work}/from_readme/build -DCMAKE_PREFIX_PATH=${prefix}
  -DCMAKE_CXX_COMPILER=${CXX} -G Ninja)
run(${CMAKE_COMMAND} --build ${work}/from_readme/build)
run(${work}/from_readme/build/your_program)
if(NOT output STREQUAL wanted)
  message(FATAL_ERROR "the program in the README, built by CMake, prints\n${output}and not\n${wanted}")
endif()

# What the page "How do I ..." says about linking, as a reader copies it.
file(MAKE_DIRECTORY ${work}/from_page)
file(COPY ${SOURCE}/docs/snippets/points.cpp ${SOURCE}/docs/snippets/link/CMakeLists.txt ${SOURCE}/docs/snippets/link/compile.sh
  DESTINATION ${work}/from_page)
file(READ ${SOURCE}/docs/snippets/points.txt wanted)
run(${CMAKE_COMMAND} -S ${work}/from_page -B ${work}/from_page/build -DCMAKE_PREFIX_PATH=${prefix}
  -DCMAKE_CXX_COMPILER=${CXX} -G Ninja)
run(${CMAKE_COMMAND} --build ${work}/from_page/build)
run(${work}/from_page/build/points)
set(printed "${output}")
file(READ ${work}/from_page/compile.sh line)
string(REPLACE "g++ " "'${CXX}' " line "${line}")
run(sh -c "cd '${work}/from_page' && ${line}")
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${work}/from_page/points)
if(NOT printed STREQUAL wanted OR NOT output STREQUAL wanted)
  message(FATAL_ERROR "the page's program prints\n${printed}by CMake,\n${output}by pkg-config, and not\n${wanted}")
endif()

# The runtime component alone is what a program needs to run.
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/runtime --component runtime)
file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE ${work}/runtime ${work}/runtime/*)
list(FILTER files EXCLUDE REGEX "^${LIBDIR}/libqxkernel\\.so\\.[0-9.]+$")
if(files OR NOT EXISTS ${work}/runtime/${LIBDIR}/libqxkernel.so.${SOVERSION})
  message(FATAL_ERROR "the component runtime is not the library alone: ${files}")
endif()

# The libraries for many ranks, where they were built, in a project of their own.
if(EXISTS ${prefix}/${LIBDIR}/pkgconfig/qxkernel_mpi_real.pc)
  file(MAKE_DIRECTORY ${work}/ranks)
  file(WRITE ${work}/ranks/main.cpp "#include <distributed.hpp>\n"
    "int main() { qx::distributed::Session s; qx::distributed::Conditions c; c.fix(0, 2.0);\n"
    "  const std::vector<qx::distributed::Index> one{0};\n"
    "  return qx::distributed::Unknowns(s, one, 1, c).particular()[0] == 2.0 ? 0 : 1; }\n")
  file(WRITE ${work}/ranks/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)\nproject(ranks LANGUAGES C CXX)\n"
    "find_package(qxkernel REQUIRED)\nadd_executable(ranks main.cpp)\n"
    "target_link_libraries(ranks PRIVATE qxkernel::mpi_real)\n")
  run(${CMAKE_COMMAND} -S ${work}/ranks -B ${work}/ranks/build -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -G Ninja)
  run(${CMAKE_COMMAND} --build ${work}/ranks/build)
  run(${work}/ranks/build/ranks)
  run(pkg-config --cflags --libs qxkernel_mpi_real)
  if(NOT output MATCHES "qxkernel_mpi" OR NOT output MATCHES "-lqxkernel")
    message(FATAL_ERROR "the package file of the libraries for many ranks says ${output}")
  endif()
endif()

# As part of another project: no tests, examples or installation, and nobody asks for GoogleTest.
file(MAKE_DIRECTORY ${work}/parent)
file(WRITE ${work}/parent/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)\nproject(parent LANGUAGES C CXX)\n"
  "add_subdirectory(\"${SOURCE}\" qxkernel)\nadd_executable(program main.cpp)\n"
  "target_link_libraries(program PRIVATE qxkernel::qxkernel)\n")
file(WRITE ${work}/parent/main.cpp "int main() {}\n")
run(${CMAKE_COMMAND} -S ${work}/parent -B ${work}/parent/build -DCMAKE_CXX_COMPILER=${CXX} -G Ninja
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON)
run(ninja -C ${work}/parent/build -t targets all)
if(output MATCHES "qx_[a-z]*_tests|evaluate:" OR NOT output MATCHES "libqxkernel.so")
  message(FATAL_ERROR "a project that includes this one gets more than the library")
endif()

# The name that programs record, and a search path for drop-in libraries beside the library itself.
run(readelf -d ${prefix}/${LIBDIR}/libqxkernel.so)
foreach(wanted "SONAME.*libqxkernel.so.${SOVERSION}" "RUNPATH.*\\$ORIGIN")
  if(NOT output MATCHES "${wanted}")
    message(FATAL_ERROR "the library's dynamic section has no ${wanted}\n${output}")
  endif()
endforeach()

# Every library that loading ours brings in, at any remove, stands in the list of licences. The C library and the compiler's
# runtime for unwinding are the system's.
run(ldd ${prefix}/${LIBDIR}/libqxkernel.so)
string(REGEX MATCHALL "lib[a-zA-Z0-9+_-]+\\.so" entries "${output}")
list(REMOVE_DUPLICATES entries)
list(TRANSFORM entries REPLACE "^lib(.*)\\.so$" "\\1")
list(REMOVE_ITEM entries c m pthread dl rt gcc_s)
file(READ ${THIRD_PARTY} licences)
string(TOLOWER "${licences}" licences)
if(NOT "sleef" IN_LIST entries)
  message(FATAL_ERROR "no list of loaded libraries found\n${output}")
endif()
foreach(library ${entries})
  string(REGEX REPLACE "^flint-" "" name ${library})
  string(REGEX REPLACE "suitesparseconfig" "suitesparse_config" name ${name})
  string(FIND "${licences}" ${name} at)
  if(at EQUAL -1)
    message(FATAL_ERROR "THIRD_PARTY.md does not name ${library}")
  endif()
endforeach()
