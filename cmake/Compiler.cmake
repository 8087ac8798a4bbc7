# How every target of the project is compiled.

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

add_compile_definitions(_GNU_SOURCE _FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast> $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  -fstack-protector-strong -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>)
add_link_options(-Wl,-z,relro -Wl,-z,now)

if(CMAKE_BUILD_TYPE MATCHES "Rel")
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

if(RDM_SANITIZE)
  add_compile_options(-fsanitize=${RDM_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${RDM_SANITIZE})
endif()

if(RDM_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
