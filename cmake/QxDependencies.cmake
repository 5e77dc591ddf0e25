# SPDX-License-Identifier: LicenseRef-qxkernel
# What is installed and called, not written here. Debian package names stand in tools/bootstrap.
find_package(Boost 1.74 REQUIRED)
find_package(OpenMP REQUIRED COMPONENTS C CXX)
find_package(Threads REQUIRED)

# The Java VM is found at run time and never linked: only its headers are needed. Without them (QX_WITH_JAVA=OFF) the calls
# that need a virtual machine are there and raise what they raise without one; the headers about Java arrays are left out.
add_library(qx_jni INTERFACE)
if(QX_WITH_JAVA)
  find_path(QX_JNI_INCLUDE jni.h PATHS $ENV{JAVA_HOME}/include /usr/lib/jvm/default-java/include)
  if(NOT QX_JNI_INCLUDE)
    message(FATAL_ERROR "jni.h is not there: install the headers of a JDK (Debian: default-jdk-headless), set JAVA_HOME, or "
      "configure with -DQX_WITH_JAVA=OFF")
  endif()
  target_include_directories(qx_jni SYSTEM INTERFACE ${QX_JNI_INCLUDE} ${QX_JNI_INCLUDE}/linux)
  find_program(QX_JAVAC javac) # for tests and an example; without them these are left out
  find_program(QX_JAVA java)
endif()

function(qx_find_plain target header library)
  find_path(${target}_INCLUDE ${header} PATH_SUFFIXES ${ARGN} REQUIRED)
  find_library(${target}_LIBRARY ${library} REQUIRED)
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${${target}_INCLUDE})
  target_link_libraries(${target} INTERFACE ${${target}_LIBRARY})
endfunction()

qx_find_plain(qx_sleef sleef.h sleef)

# FLINT with Arb: the system's, or the user's own beneath FLINT_ROOT and nowhere else. Arb is a library of its own before
# FLINT 3.
if(NOT FLINT_ROOT)
  set(FLINT_ROOT $ENV{FLINT_ROOT})
endif()
if(FLINT_ROOT)
  set(only_there NO_DEFAULT_PATH)
endif()
find_path(QX_ARB_INCLUDE arb_fpwrap.h HINTS ${FLINT_ROOT} PATH_SUFFIXES include include/flint flint REQUIRED ${only_there})
find_library(QX_ARB NAMES flint-arb arb flint HINTS ${FLINT_ROOT} PATH_SUFFIXES lib lib64 REQUIRED ${only_there})
add_library(qx_arb INTERFACE)
target_include_directories(qx_arb SYSTEM INTERFACE ${QX_ARB_INCLUDE})
target_link_libraries(qx_arb INTERFACE ${QX_ARB})

# UMFPACK. The library links a private copy of the static form in which the BLAS routines and the allocations bear other
# names: they lead through solvers/, where a factorisation is counted and can be cancelled between two of them. Whatever else
# UMFPACK calls is the system's, shared and left as it is. The shared form of UMFPACK works too, but is slow to notice a
# cancel, and its allocations are those of the whole process.
if(QX_WITH_UMFPACK)
  find_library(QX_UMFPACK_A libumfpack.a)
  find_library(QX_AMD amd)
  find_library(QX_SUITESPARSECONFIG suitesparseconfig)
  find_library(QX_CHOLMOD cholmod)
  if(QX_UMFPACK_A AND QX_AMD AND QX_SUITESPARSECONFIG AND QX_CHOLMOD AND CMAKE_OBJCOPY)
    set(renamed ${PROJECT_BINARY_DIR}/libqx_umfpack.a)
    set(renames "")
    foreach(routine dgemm dtrsm dger dgemv dtrsv zgemm ztrsm zgeru zgemv ztrsv)
      list(APPEND renames --redefine-sym ${routine}_=qx_umfpack_${routine}_)
    endforeach()
    foreach(name config malloc free)
      list(APPEND renames --redefine-sym SuiteSparse_${name}=qx_umfpack_${name})
    endforeach()
    execute_process(COMMAND ${CMAKE_OBJCOPY} ${renames} ${QX_UMFPACK_A} ${renamed} COMMAND_ERROR_IS_FATAL ANY)
    find_path(qx_umfpack_INCLUDE umfpack.h PATH_SUFFIXES suitesparse REQUIRED)
    add_library(qx_umfpack INTERFACE)
    target_include_directories(qx_umfpack SYSTEM INTERFACE ${qx_umfpack_INCLUDE})
    target_link_libraries(qx_umfpack INTERFACE ${renamed} ${QX_AMD} ${QX_SUITESPARSECONFIG} ${QX_CHOLMOD})
    target_compile_definitions(qx_umfpack INTERFACE QX_UMFPACK_POLLS_BLAS)
    target_link_options(qx_umfpack INTERFACE LINKER:--exclude-libs,libqx_umfpack.a)
  else()
    qx_find_plain(qx_umfpack umfpack.h umfpack suitesparse)
    find_library(QX_SUITESPARSECONFIG suitesparseconfig REQUIRED)
    target_link_libraries(qx_umfpack INTERFACE ${QX_SUITESPARSECONFIG})
  endif()
endif()
find_library(QX_LAPACK lapack REQUIRED)
find_library(QX_BLAS blas REQUIRED)
add_library(qx_lapack INTERFACE)
target_link_libraries(qx_lapack INTERFACE ${QX_LAPACK} ${QX_BLAS})
