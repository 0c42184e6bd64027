# public_headers_compile: every public header compiles alone, and twice in a row.

set(sources)
foreach(directory IN LISTS POA_PUBLIC_INCLUDE_DIRS)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${directory} ${directory}/*.h)
  foreach(header IN LISTS headers)
    set(source ${PROJECT_BINARY_DIR}/public_headers/${header}.cpp)
    file(CONFIGURE OUTPUT ${source} @ONLY CONTENT "#include \"@header@\"\n#include \"@header@\"\n")
    list(APPEND sources ${source})
  endforeach()
endforeach()

if(sources)
  add_library(public_headers_compile OBJECT ${sources})
  target_link_libraries(public_headers_compile PRIVATE poa_headers poa_warnings)
else()
  message(STATUS "public_headers_compile: no headers, skipped")
endif()
