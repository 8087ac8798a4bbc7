# SPDX-License-Identifier: MIT
# rdm_library(NAME OBJECTS TARGETS... VERSION X.Y.Z MAP FILE DESCRIPTION TEXT BASE DIR HEADERS FILES... LINK LIBS...
#             USE LIBS...)
#
# A shared library made of the sources of object libraries, which are compiled once: tests link the objects, so that
# they reach internals; all others link the library, whose version script exports exactly the interfaces. X is the
# number in the soname. Programs that link the library link those in LINK too; libraries in USE are private.
#
# Installed are the library, its public headers and its pkg-config file. HEADERS are spelled as programs include them,
# relative to BASE below the source directory; the installed ones are in a directory of their own, RDM_HEADER_DIR, which
# leaves the general names in their paths free for others. Programs link the target rdm::NAME.
set(RDM_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME})

function(rdm_library name)
  cmake_parse_arguments(LIBRARY "" "VERSION;MAP;DESCRIPTION;BASE" "OBJECTS;HEADERS;LINK;USE" ${ARGN})
  string(REGEX MATCH "^[0-9]+" soversion ${LIBRARY_VERSION})
  add_library(${name} SHARED)
  foreach(objects ${LIBRARY_OBJECTS})
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:${objects}>)
  endforeach()
  add_library(rdm::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES SOVERSION ${soversion} VERSION ${LIBRARY_VERSION}
    INSTALL_RPATH "$<$<BOOL:${LIBRARY_LINK}>:$ORIGIN>"
    LINKER_LANGUAGE CXX LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${LIBRARY_MAP})
  target_link_options(${name} PRIVATE -Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/${LIBRARY_MAP}
    -Wl,-Bsymbolic-functions)
  target_link_libraries(${name} PUBLIC ${LIBRARY_LINK} PRIVATE ${LIBRARY_USE})
  rdm_public_headers(${name} ${LIBRARY_BASE} ${LIBRARY_HEADERS})
  install(TARGETS ${name} EXPORT rdmTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libraries NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${RDM_HEADER_DIR} COMPONENT development)
  rdm_pkg_config(${name} ${LIBRARY_VERSION} ${LIBRARY_DESCRIPTION} ${LIBRARY_LINK})
endfunction()

# rdm_public_headers(NAME BASE HEADERS...): the tests of the headers find all of them in RDM_PUBLIC_HEADERS.
function(rdm_public_headers name base)
  cmake_path(ABSOLUTE_PATH base BASE_DIRECTORY ${CMAKE_SOURCE_DIR} NORMALIZE)
  set_property(GLOBAL APPEND PROPERTY RDM_PUBLIC_HEADERS ${ARGN})
  list(TRANSFORM ARGN PREPEND ${base}/ OUTPUT_VARIABLE files)
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${base} FILES ${files})
  target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>)
endfunction()

# rdm_pkg_config(NAME VERSION DESCRIPTION LINK...): installs libNAME.pc. It finds everything relative to its own place,
# so that it holds under any prefix.
function(rdm_pkg_config name version description)
  set(directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE up)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${up} OUTPUT_VARIABLE up)
  set(prefix "\${prefix}")
  cmake_path(APPEND prefix ${CMAKE_INSTALL_LIBDIR} OUTPUT_VARIABLE libdir)
  cmake_path(APPEND prefix ${RDM_HEADER_DIR} OUTPUT_VARIABLE includedir)
  list(TRANSFORM ARGN PREPEND lib OUTPUT_VARIABLE requires)
  list(JOIN requires ", " requires)
  set(file ${CMAKE_BINARY_DIR}/packaging/lib${name}.pc)
  configure_file(${CMAKE_SOURCE_DIR}/packaging/pkg-config/library.pc.in ${file} @ONLY)
  install(FILES ${file} DESTINATION ${directory} COMPONENT development)
endfunction()

# rdm_install_program(TARGET DIRECTORY): installs a program, and what it prints as its completion for each shell. Its
# name is the OUTPUT_NAME of the target, if that is set. Tests find the targets of all programs in RDM_PROGRAMS.
function(rdm_install_program target directory)
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  install(TARGETS ${target} RUNTIME DESTINATION ${directory} COMPONENT programs)
  set_property(GLOBAL APPEND PROPERTY RDM_PROGRAMS ${target})
  add_dependencies(programs ${target})
  rdm_install_completion(${target} bash ${CMAKE_INSTALL_DATADIR}/bash-completion/completions ${name})
  rdm_install_completion(${target} zsh ${RDM_ZSH_DIR} _${name})
  rdm_install_completion(${target} fish ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d ${name}.fish)
endfunction()

# The directory in which zsh looks for completions: Debian leaves site-functions below /usr to the administrator.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(RDM_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
else()
  set(RDM_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()

# rdm_install_completion(TARGET SHELL DIRECTORY FILE): installs the completion of a program, which prints it then, to a
# directory of that installation: several may run at once.
function(rdm_install_completion target shell directory file)
  set(prefix "\${CMAKE_INSTALL_PREFIX}")
  cmake_path(APPEND prefix ${directory} OUTPUT_VARIABLE destination)
  install(CODE "string(RANDOM LENGTH 16 made)
    set(made \"${CMAKE_BINARY_DIR}/completion/\${made}\")
    file(MAKE_DIRECTORY \"\${made}\")
    execute_process(COMMAND \"$<TARGET_FILE:${target}>\" completion ${shell} OUTPUT_FILE \"\${made}/${file}\"
      COMMAND_ERROR_IS_FATAL ANY)
    file(INSTALL DESTINATION \"${destination}\" TYPE FILE FILES \"\${made}/${file}\")
    file(REMOVE_RECURSE \"\${made}\")" COMPONENT programs)
endfunction()

# rdm_objects(NAME): the object library of rdm_library: no exceptions, no RTTI, since its procedures are called
# through a C interface. All of them share a precompiled header.
function(rdm_objects name)
  add_library(${name} OBJECT)
  target_compile_options(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
  # The snapshots of the interface are compared with the types in the debug information.
  target_compile_options(${name} PRIVATE $<$<CONFIG:RelWithDebInfo>:-g>)
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR})
  if(name STREQUAL "qxapi_objects")
    target_precompile_headers(${name} PRIVATE <algorithm> <array> <charconv> <cstring> <limits> <optional> <span>
      <string_view> <utility>)
  else()
    target_precompile_headers(${name} REUSE_FROM qxapi_objects)
  endif()
endfunction()

# rdm_parts(NAME SOURCES... [HEADERS HEADERS... | LIKE TARGET]): a static library of programs. It shares the precompiled
# header of the first one, unless it has HEADERS of its own or shares those of the TARGET.
function(rdm_parts name)
  cmake_parse_arguments(PARTS "" "LIKE" "HEADERS" ${ARGN})
  add_library(${name} STATIC ${PARTS_UNPARSED_ARGUMENTS})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR})
  get_property(owner GLOBAL PROPERTY RDM_PROGRAM_HEADERS)
  if(PARTS_HEADERS)
    target_precompile_headers(${name} PRIVATE ${PARTS_HEADERS})
  elseif(PARTS_LIKE)
    target_precompile_headers(${name} REUSE_FROM ${PARTS_LIKE})
  elseif(owner)
    target_precompile_headers(${name} REUSE_FROM ${owner})
  else()
    set_property(GLOBAL PROPERTY RDM_PROGRAM_HEADERS ${name})
    target_precompile_headers(${name} PRIVATE <algorithm> <array> <charconv> <chrono> <filesystem> <functional> <map>
      <memory> <mutex> <optional> <ostream> <set> <sstream> <string> <string_view> <system_error> <thread> <utility>
      <vector>)
  endif()
endfunction()

# rdm_seldom_run(TARGETS...): code whose speed is no matter: a command line is read once, and monitors ask seldom.
# CLI11, Beast and JSON compile in half the time with few optimisations.
function(rdm_seldom_run)
  foreach(target ${ARGN})
    target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-Og>)
  endforeach()
endfunction()
