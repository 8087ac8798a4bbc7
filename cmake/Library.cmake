# rdm_library(NAME OBJECTS TARGET SOVERSION N MAP FILE LINK LIBS... USE LIBS...)
#
# A shared library made of an object library's sources, which are compiled once: tests link the objects, so that they
# reach internals; everybody else links the library, whose version script exports exactly the interfaces. Who links it
# links what it is LINKed with too; what it USEs is its own affair.
function(rdm_library name)
  cmake_parse_arguments(LIBRARY "" "OBJECTS;SOVERSION;MAP" "LINK;USE" ${ARGN})
  add_library(${name} SHARED $<TARGET_OBJECTS:${LIBRARY_OBJECTS}>)
  set_target_properties(${name} PROPERTIES SOVERSION ${LIBRARY_SOVERSION} VERSION ${LIBRARY_SOVERSION}
    LINKER_LANGUAGE CXX LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${LIBRARY_MAP})
  target_link_options(${name} PRIVATE -Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/${LIBRARY_MAP}
    -Wl,-Bsymbolic-functions)
  target_link_libraries(${name} PUBLIC ${LIBRARY_LINK} PRIVATE ${LIBRARY_USE})
  target_include_directories(${name} INTERFACE ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR})
  install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# rdm_objects(NAME): the object library behind rdm_library: no exceptions, no RTTI, since its procedures are called
# through a C interface.
function(rdm_objects name)
  add_library(${name} OBJECT)
  target_compile_options(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR})
endfunction()
