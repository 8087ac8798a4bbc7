# SPDX-License-Identifier: MIT
# How every target of the project is compiled.

# The cache serves every clone: names below the source directory are taken relative to it. It cannot tell whether a
# precompiled header uses the time of day; none does. A build whose debug information must be the same with the cache and
# without it names a launcher of its own, or an empty one.
find_program(CCACHE ccache)
if(CCACHE AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_C_COMPILER_LAUNCHER})
endif()

add_compile_definitions(_GNU_SOURCE _FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast> $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  -fstack-protector-strong -fstack-clash-protection -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>)
add_link_options(-Wl,-z,relro -Wl,-z,now)

# Of sources that are compiled together, one may hide a name of another, and all but the last look like headers.
if(CMAKE_UNITY_BUILD)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-shadow> $<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
endif()

# The targets of indirect jumps are marked (CET). Processes are checked once all parts of them are marked, the
# system's start files too.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|i.86")
  add_compile_options(-fcf-protection=full)
endif()

# Containers of the standard library check their bounds in every build; functions of the C library check theirs if the
# optimiser knows the sizes.
add_compile_definitions(_GLIBCXX_ASSERTIONS)
if(CMAKE_BUILD_TYPE MATCHES "Rel")
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
endif()

# Debug information of installed files names sources relative to the source directory: builds in different places make
# the same files.
if(CMAKE_BUILD_TYPE MATCHES "Rel")
  add_compile_options(-fdebug-prefix-map=${CMAKE_SOURCE_DIR}=. -fmacro-prefix-map=${CMAKE_SOURCE_DIR}=.)
endif()

if(RDM_SANITIZE)
  # Not vptr: its check opens a pipe, and takes every object for damaged when no descriptor is left, as in some tests.
  add_compile_options(-fsanitize=${RDM_SANITIZE} -fno-sanitize=vptr -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${RDM_SANITIZE})
endif()

if(RDM_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
