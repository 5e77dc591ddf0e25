# SPDX-License-Identifier: LicenseRef-qxkernel
# qx_add_subsystem(name SOURCES ... HEADERS ... USES ... PRIVATE ...)
#
# One object library per folder; the shared library is the sum of all of them. HEADERS are the folder's public headers
# in include/. USES is the row of the floor table: what the folder may call and include, checked by
# tools/check_includes.py and, on the objects, by tools/check_symbols.py. PRIVATE are libraries only this folder sees.
set_property(GLOBAL PROPERTY QX_SUBSYSTEMS "")
set_property(GLOBAL PROPERTY QX_PUBLIC_HEADERS "")

function(qx_add_subsystem name)
  cmake_parse_arguments(S "" "" "SOURCES;HEADERS;USES;PRIVATE" ${ARGN})
  if(NOT S_SOURCES)
    set(S_SOURCES ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  add_library(qx_${name} OBJECT ${S_SOURCES})
  target_include_directories(qx_${name} PUBLIC ${PROJECT_SOURCE_DIR}/include PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_definitions(qx_${name} PRIVATE QX_BUILDING_LIBRARY)
  target_compile_options(qx_${name} PRIVATE -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>)
  target_compile_options(qx_${name} PRIVATE ${qx_coverage})
  if(QX_FUZZ)
    target_compile_options(qx_${name} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
  target_link_libraries(qx_${name} PRIVATE qx_flags Boost::headers OpenMP::OpenMP_CXX OpenMP::OpenMP_C ${S_PRIVATE})
  set_property(GLOBAL APPEND PROPERTY QX_SUBSYSTEMS ${name})
  set_property(GLOBAL PROPERTY QX_PRIVATE_${name} "${S_PRIVATE}")
  foreach(h ${S_HEADERS})
    set_property(GLOBAL APPEND PROPERTY QX_PUBLIC_HEADERS ${h})
    set_property(GLOBAL APPEND_STRING PROPERTY QX_HEADER_TABLE "${h} ${name}\n")
  endforeach()
  string(REPLACE ";" " " uses "${S_USES}")
  set_property(GLOBAL APPEND_STRING PROPERTY QX_USES_TABLE "${name} ${uses}\n")
endfunction()

# The shared library, the static one that tests link to reach private code, the header test, the install rules.
function(qx_finish_library)
  get_property(names GLOBAL PROPERTY QX_SUBSYSTEMS)
  get_property(headers GLOBAL PROPERTY QX_PUBLIC_HEADERS)

  get_property(table GLOBAL PROPERTY QX_HEADER_TABLE)
  file(WRITE ${PROJECT_BINARY_DIR}/headers.txt "${table}")
  get_property(table GLOBAL PROPERTY QX_USES_TABLE)
  file(WRITE ${PROJECT_BINARY_DIR}/uses.txt "${table}")

  # Every public header compiles alone and may be included twice. Once is enough: not again under sanitizers.
  set(alone "")
  foreach(h ${headers})
    set(file ${PROJECT_BINARY_DIR}/header_test/${h}.cpp)
    file(CONFIGURE OUTPUT ${file} CONTENT "#include \"${h}\"\n#include \"${h}\"\n")
    list(APPEND alone ${file})
  endforeach()
  if(alone AND PROJECT_IS_TOP_LEVEL AND NOT QX_SANITIZE)
    add_library(qx_headers_alone OBJECT ${alone})
    target_include_directories(qx_headers_alone PRIVATE ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(qx_headers_alone PRIVATE qx_flags Boost::headers)
  endif()

  set(objects "")
  set(private "")
  foreach(n ${names})
    list(APPEND objects $<TARGET_OBJECTS:qx_${n}>)
    get_property(p GLOBAL PROPERTY QX_PRIVATE_${n})
    list(APPEND private ${p})
  endforeach()
  list(REMOVE_DUPLICATES private)

  add_library(qxkernel SHARED ${objects})
  add_library(qxkernel::qxkernel ALIAS qxkernel)
  set_target_properties(qxkernel PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN")
  target_compile_features(qxkernel INTERFACE cxx_std_20)
  # What is exported is what cmake/exports.txt lists; tools/check_exports.py warns of what is new, and where it runs, that is
  # exported too until it is listed. Symbols carry the major version: two versions of the library in one process do not meet.
  set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.txt)
  set(map ${PROJECT_BINARY_DIR}/qxkernel.map)
  find_program(QX_PYTHON3 python3)
  if(QX_PYTHON3 AND PROJECT_IS_TOP_LEVEL)
    add_custom_command(TARGET qxkernel PRE_LINK VERBATIM
      COMMAND ${QX_PYTHON3} ${PROJECT_SOURCE_DIR}/tools/check_exports.py ${PROJECT_BINARY_DIR} --map ${map})
  else()
    file(READ ${exports} listed)
    string(REGEX REPLACE "([^\n]+)\n" "    \"\\1\";\n" listed "${listed}")
    file(GENERATE OUTPUT ${map} CONTENT
      "QXKERNEL_${PROJECT_VERSION_MAJOR} {\n  global: extern \"C++\" {\n${listed}  };\n  local: *;\n};\n")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports})
  endif()
  target_link_options(qxkernel PRIVATE LINKER:--version-script=${map})
  set_target_properties(qxkernel PROPERTIES LINK_DEPENDS ${exports})
  target_link_libraries(qxkernel PRIVATE qx_flags ${private} OpenMP::OpenMP_CXX ${CMAKE_DL_LIBS} Threads::Threads
    PUBLIC $<BUILD_INTERFACE:Boost::headers>)
  target_include_directories(qxkernel PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/qxkernel>)

  add_library(qxkernel_static STATIC EXCLUDE_FROM_ALL ${objects})
  target_link_libraries(qxkernel_static PUBLIC qx_flags ${private} OpenMP::OpenMP_CXX ${CMAKE_DL_LIBS} Threads::Threads
    Boost::headers)
  target_include_directories(qxkernel_static PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})

  if(QX_INSTALL)
    qx_install_library("${headers}")
  endif()
endfunction()

# Component runtime: what programs load. Component dev: what their builds need.
function(qx_install_library headers)
  include(CMakePackageConfigHelpers)
  set(package ${CMAKE_INSTALL_LIBDIR}/cmake/qxkernel)
  install(TARGETS qxkernel EXPORT qxkernelTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
    NAMELINK_COMPONENT dev)
  list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/include/ OUTPUT_VARIABLE header_paths)
  install(FILES ${header_paths} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qxkernel COMPONENT dev)
  install(EXPORT qxkernelTargets NAMESPACE qxkernel:: DESTINATION ${package} COMPONENT dev)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qxkernelConfig.cmake.in
    ${PROJECT_BINARY_DIR}/qxkernelConfig.cmake INSTALL_DESTINATION ${package})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/qxkernelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/qxkernelConfig.cmake ${PROJECT_BINARY_DIR}/qxkernelConfigVersion.cmake
    DESTINATION ${package} COMPONENT dev)
  file(RELATIVE_PATH QX_PREFIX_FROM_PC /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/qxkernel.pc.in ${PROJECT_BINARY_DIR}/qxkernel.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/qxkernel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endfunction()
