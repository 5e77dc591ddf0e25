# What is installed and called, not written here. Debian package names stand in tools/bootstrap.
find_package(Boost 1.74 REQUIRED)
find_package(OpenMP REQUIRED COMPONENTS C CXX)
find_package(Threads REQUIRED)

# The Java VM is found at run time and never linked: only its headers are needed.
find_path(QX_JNI_INCLUDE jni.h
  PATHS $ENV{JAVA_HOME}/include /usr/lib/jvm/default-java/include REQUIRED)
add_library(qx_jni INTERFACE)
target_include_directories(qx_jni SYSTEM INTERFACE ${QX_JNI_INCLUDE} ${QX_JNI_INCLUDE}/linux)

function(qx_find_plain target header library)
  find_path(${target}_INCLUDE ${header} PATH_SUFFIXES ${ARGN} REQUIRED)
  find_library(${target}_LIBRARY ${library} REQUIRED)
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${${target}_INCLUDE})
  target_link_libraries(${target} INTERFACE ${${target}_LIBRARY})
endfunction()

qx_find_plain(qx_sleef sleef.h sleef)
qx_find_plain(qx_cerf cerf.h cerf)
qx_find_plain(qx_arb arb_fpwrap.h flint-arb)
qx_find_plain(qx_umfpack umfpack.h umfpack suitesparse)
find_library(QX_LAPACK lapack REQUIRED)
find_library(QX_BLAS blas REQUIRED)
add_library(qx_lapack INTERFACE)
target_link_libraries(qx_lapack INTERFACE ${QX_LAPACK} ${QX_BLAS})
