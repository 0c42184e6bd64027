# How our own code is compiled.

# Linked PRIVATE by our targets only: a program that uses the libraries picks its own warnings.
add_library(poa_warnings INTERFACE)
target_compile_options(poa_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wconversion
  $<$<BOOL:${POA_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)

# The public headers of every library, for code that is compiled before it is decided what it links.
set(POA_PUBLIC_INCLUDE_DIRS
  ${PROJECT_SOURCE_DIR}/include
  ${PROJECT_SOURCE_DIR}/orb/runtime/include
  ${PROJECT_SOURCE_DIR}/orb/core/include
  ${PROJECT_SOURCE_DIR}/orb/socket/include)
add_library(poa_headers INTERFACE)
target_include_directories(poa_headers INTERFACE ${POA_PUBLIC_INCLUDE_DIRS})

if(POA_SANITIZE STREQUAL "address")
  set(sanitize -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(POA_SANITIZE STREQUAL "thread")
  set(sanitize -fsanitize=thread -fno-omit-frame-pointer)
elseif(POA_SANITIZE)
  message(FATAL_ERROR "POA_SANITIZE is empty, address or thread, not '${POA_SANITIZE}'")
endif()
add_compile_options(${sanitize})
add_link_options(${sanitize})
