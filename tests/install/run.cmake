# Installs the build into a fresh prefix, builds the consumer against it by find_package and by pkg-config, runs both.
# The prefix is not the configured one: what is installed must be relocatable.
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

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(pkg-config --cflags --libs qxkernel)
string(REGEX MATCHALL "[^ \n]+" flags "${output}")
run(${CXX} -std=c++20 -o ${work}/consumer ${work}/cmake/all_headers.cpp ${CONSUMER}/main.cpp ${flags})
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${work}/consumer)

# The name that programs record, and a search path for drop-in libraries beside the library itself.
run(readelf -d ${prefix}/${LIBDIR}/libqxkernel.so)
foreach(wanted "SONAME.*libqxkernel.so.${SOVERSION}" "RUNPATH.*\\$ORIGIN")
  if(NOT output MATCHES "${wanted}")
    message(FATAL_ERROR "the library's dynamic section has no ${wanted}\n${output}")
  endif()
endforeach()
