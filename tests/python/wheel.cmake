# SPDX-License-Identifier: LicenseRef-qxkernel
# Installs the library, makes a wheel against it, installs that into a virtual environment and uses it.
#   cmake -D build=... -D source=... -D python=... -D work=... -P wheel.cmake
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work})
run(${CMAKE_COMMAND} --install ${build} --prefix ${work}/prefix)
file(COPY ${source}/python ${source}/CMakeLists.txt DESTINATION ${work}/copy) # pip builds inside the folder
set(ENV{CMAKE_PREFIX_PATH} ${work}/prefix)
run(${python} -m pip wheel -q --no-build-isolation --no-deps --no-index -w ${work} ${work}/copy/python)
file(GLOB wheel ${work}/qxkernel-*.whl)
run(${python} -m venv --system-site-packages ${work}/venv)
run(${work}/venv/bin/python -m pip install -q --no-index --no-deps ${wheel})
set(ENV{PYTHONPATH})
execute_process(WORKING_DIRECTORY ${work} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY
  COMMAND ${work}/venv/bin/python -c "import qxkernel; print(qxkernel.__file__, qxkernel.Expr('x^3').diff('x'))")
if(NOT text MATCHES "^${work}/venv/.*3\\*x\\^2")
  message(FATAL_ERROR "the installed package says ${text}")
endif()
