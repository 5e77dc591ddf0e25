# SPDX-License-Identifier: LicenseRef-qxkernel
# What is installed and called, not written here. Debian package names stand in tools/bootstrap.
find_package(Boost 1.74 REQUIRED)
find_package(OpenMP REQUIRED COMPONENTS C CXX)
find_package(Threads REQUIRED)

# The Java VM is found at run time and never linked: only its headers are needed.
find_path(QX_JNI_INCLUDE jni.h
  PATHS $ENV{JAVA_HOME}/include /usr/lib/jvm/default-java/include REQUIRED)
add_library(qx_jni INTERFACE)
target_include_directories(qx_jni SYSTEM INTERFACE ${QX_JNI_INCLUDE} ${QX_JNI_INCLUDE}/linux)
find_program(QX_JAVAC javac) # for tests and an example; without them these are left out
find_program(QX_JAVA java)

function(qx_find_plain target header library)
  find_path(${target}_INCLUDE ${header} PATH_SUFFIXES ${ARGN} REQUIRED)
  find_library(${target}_LIBRARY ${library} REQUIRED)
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${${target}_INCLUDE})
  target_link_libraries(${target} INTERFACE ${${target}_LIBRARY})
endfunction()

qx_find_plain(qx_sleef sleef.h sleef)
qx_find_plain(qx_arb arb_fpwrap.h flint-arb)

# UMFPACK. The library links a private copy of the static form in which the BLAS routines bear other names: they lead
# through solvers/, where a factorisation is counted and can be cancelled between two of them. The shared form works too,
# but is slow to notice a cancel.
find_library(QX_UMFPACK_A libumfpack.a)
find_library(QX_AMD_A libamd.a)
find_library(QX_SUITESPARSECONFIG_A libsuitesparseconfig.a)
find_library(QX_CHOLMOD cholmod)
if(QX_UMFPACK_A AND QX_AMD_A AND QX_SUITESPARSECONFIG_A AND QX_CHOLMOD AND CMAKE_OBJCOPY)
  set(renamed ${PROJECT_BINARY_DIR}/libqx_umfpack.a)
  set(renames "")
  foreach(routine dgemm dtrsm dger dgemv dtrsv zgemm ztrsm zgeru zgemv ztrsv)
    list(APPEND renames --redefine-sym ${routine}_=qx_umfpack_${routine}_)
  endforeach()
  execute_process(COMMAND ${CMAKE_OBJCOPY} ${renames} ${QX_UMFPACK_A} ${renamed} COMMAND_ERROR_IS_FATAL ANY)
  find_path(qx_umfpack_INCLUDE umfpack.h PATH_SUFFIXES suitesparse REQUIRED)
  add_library(qx_umfpack INTERFACE)
  target_include_directories(qx_umfpack SYSTEM INTERFACE ${qx_umfpack_INCLUDE})
  target_link_libraries(qx_umfpack INTERFACE ${renamed} ${QX_AMD_A} ${QX_SUITESPARSECONFIG_A} ${QX_CHOLMOD})
  target_compile_definitions(qx_umfpack INTERFACE QX_UMFPACK_POLLS_BLAS)
  target_link_options(qx_umfpack INTERFACE "LINKER:--exclude-libs,libqx_umfpack.a:libamd.a:libsuitesparseconfig.a")
else()
  qx_find_plain(qx_umfpack umfpack.h umfpack suitesparse)
endif()
find_library(QX_LAPACK lapack REQUIRED)
find_library(QX_BLAS blas REQUIRED)
add_library(qx_lapack INTERFACE)
target_link_libraries(qx_lapack INTERFACE ${QX_LAPACK} ${QX_BLAS})
