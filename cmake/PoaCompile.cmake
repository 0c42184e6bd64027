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

# For our libraries only. Nobody replaces one of their functions from outside, so calls within a library need no
# detour; calls between them go through one load instead of a stub; thread-local data stands at a known
# distance from where the thread's own begins (tests/program opens the libraries in a program that runs already). Records
# of a few hundred octets are cleared by stores: "rep stos" takes longer to start than they take.
include(CheckCXXCompilerFlag)
add_library(poa_optimise INTERFACE)
foreach(flag -fno-semantic-interposition -fno-plt -ftls-model=initial-exec
             -mmemset-strategy=vector_loop:1024:noalign,libcall:-1:noalign)
  string(MAKE_C_IDENTIFIER "POA_HAS${flag}" has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has} AND NOT POA_SANITIZE)
    target_compile_options(poa_optimise INTERFACE ${flag})
  endif()
endforeach()

# Profile-guided optimisation. Libraries built with "generate" count which way their code takes when programs run,
# into the directory profile of that build; a build that is given this directory lays the code out accordingly.
set(POA_PROFILE "" CACHE STRING "Profile of the libraries: empty, generate, or the directory to use")
if(POA_PROFILE AND NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  message(WARNING "POA_PROFILE is for GCC, and ignored")
elseif(POA_PROFILE)
  if(POA_PROFILE STREQUAL generate)
    set(profile -fprofile-generate=${PROJECT_BINARY_DIR}/profile -fprofile-update=atomic)
  else()
    set(profile -fprofile-use=${POA_PROFILE} -fprofile-partial-training -Wno-missing-profile)
  endif()
  list(APPEND profile -fprofile-prefix-path=${PROJECT_BINARY_DIR})
  target_compile_options(poa_optimise INTERFACE ${profile})
  target_link_options(poa_optimise INTERFACE ${profile})
endif()

# What a sanitizer adds has GCC see paths on which something would be uninitialised, in std::regex for one.
if(POA_SANITIZE)
  target_compile_options(poa_warnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

if(POA_SANITIZE STREQUAL "address")
  set(sanitize -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(POA_SANITIZE STREQUAL "thread")
  set(sanitize -fsanitize=thread -fno-omit-frame-pointer)
elseif(POA_SANITIZE)
  message(FATAL_ERROR "POA_SANITIZE is empty, address or thread, not '${POA_SANITIZE}'")
endif()
if(POA_BUILD_FUZZ)
  list(APPEND sanitize -fsanitize=fuzzer-no-link)
endif()
add_compile_options(${sanitize})
add_link_options(${sanitize})
