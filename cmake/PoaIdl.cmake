# poa_idl(<target> FILES <file.idl>... [ENVIRONMENT] [ASYNC] [INCLUDES <directory>...])
#
# Compiles IDL files into the target: its sources get NAME.cpp of each NAME.idl, and whoever links it finds NAME.h.
# A change of a file or of what it includes compiles it again.
#   ENVIRONMENT  operations have a last parameter CORBA::Environment&
#   ASYNC        asynchronous calls are made, too
#   INCLUDES     where included IDL files are looked for, beside the including file's own directory
cmake_policy(VERSION 3.20...3.25)

function(poa_idl target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "ENVIRONMENT;ASYNC" "" "FILES;INCLUDES")
  if(NOT arg_FILES OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "poa_idl(<target> FILES <file.idl>... [ENVIRONMENT] [ASYNC] [INCLUDES <directory>...])")
  endif()
  set(compiler poa::poaidl)
  if(NOT TARGET poa::poaidl)  # built for another machine: take one of this
    find_program(POA_IDL_COMPILER poaidl REQUIRED)
    set(compiler ${POA_IDL_COMPILER})
  endif()
  set(directory ${CMAKE_CURRENT_BINARY_DIR}/${target}.idl)
  set(options -o ${directory})
  if(arg_ENVIRONMENT)
    list(APPEND options --environment)
  endif()
  if(arg_ASYNC)
    list(APPEND options --async)
  endif()
  foreach(include IN LISTS arg_INCLUDES)
    cmake_path(ABSOLUTE_PATH include NORMALIZE)
    list(APPEND options -I ${include})
  endforeach()

  foreach(file IN LISTS arg_FILES)
    cmake_path(ABSOLUTE_PATH file NORMALIZE)
    cmake_path(GET file STEM LAST_ONLY name)
    set(made ${directory}/${name}.cpp ${directory}/${name}.h)
    add_custom_command(
      OUTPUT ${made}
      COMMAND ${compiler} ${options} --deps ${directory}/${name}.d ${file}
      DEPENDS ${file} ${compiler}
      DEPFILE ${directory}/${name}.d
      COMMENT "Compiling ${name}.idl"
      VERBATIM)
    target_sources(${target} PRIVATE ${made})
  endforeach()
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${directory}>)
endfunction()
