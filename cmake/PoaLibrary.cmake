# poa_library(<name> INCLUDE <directory> [LINK <library>...] [INTERNAL <library>...])
#
# Makes shared library <name> (alias poa::<name>) from the *.cpp files of the current directory and below it. They are compiled
# once, as object library <name>_objects; a test of the internals links those objects, where hidden symbols can be
# reached, and never <name> beside them.
#   INCLUDE   the directory of the public headers
#   LINK      libraries whose headers the public headers include
#   INTERNAL  libraries that only the sources use; whoever links the objects gets them too
function(poa_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "INCLUDE" "LINK;INTERNAL")
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT sources)
    message(STATUS "${name}: no sources, skipped")
    return()
  endif()
  foreach(library IN LISTS arg_LINK)
    if(NOT TARGET ${library})
      message(STATUS "${name}: ${library} is not built, skipped")
      return()
    endif()
  endforeach()

  add_library(${name}_objects OBJECT ${sources})
  target_include_directories(${name}_objects PUBLIC ${arg_INCLUDE} ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name}_objects PUBLIC ${arg_LINK} ${arg_INTERNAL} PRIVATE poa_warnings poa_optimise)

  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  add_library(poa::${name} ALIAS ${name})
  target_compile_features(${name} INTERFACE cxx_std_20)
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${arg_INCLUDE}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${arg_LINK} PRIVATE $<BUILD_INTERFACE:${arg_INTERNAL}> $<BUILD_INTERFACE:poa_optimise>)
  if(NOT POA_SANITIZE)
    target_link_options(${name} PRIVATE LINKER:--no-undefined)  # a library never reaches up to the one above it
  endif()
  set_target_properties(${name} PROPERTIES
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    INSTALL_RPATH $ORIGIN)

  install(TARGETS ${name} EXPORT poaTargets)
  install(DIRECTORY ${arg_INCLUDE}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
endfunction()
