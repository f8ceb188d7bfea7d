# Warnings and sanitizers, carried by one interface target that every target links.
add_library(kv_options INTERFACE)
target_compile_options(kv_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                            -Wold-style-cast -Woverloaded-virtual)
# GCC 12 warns of libstdc++'s own string code where it inlines it from precompiled headers.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(kv_options INTERFACE -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow)
endif()
if(KV_WERROR)
  target_compile_options(kv_options INTERFACE -Werror)
endif()
if(KV_SANITIZE)
  set(CMAKE_CXX_FLAGS_DEBUG "-g1")  # lines for the reports; all else costs time and memory in vain
  add_compile_options(-fsanitize=${KV_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KV_SANITIZE})
  if(KV_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
  # Several sources are compiled as one: half the time. Names of unnamed namespaces must differ within a library for it;
  # where each source has the same by design (a family of commands), the library is left out by kv_separate_sources.
  set(CMAKE_UNITY_BUILD ON)
endif()
function(kv_separate_sources target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD OFF)
endfunction()
# What is packaged survives less of a mistake: symbols bound and sealed at the start, checked buffers and stacks, and
# programs at an address of the system's choice.
if(CMAKE_BUILD_TYPE STREQUAL Release AND NOT KV_SANITIZE)
  include(CheckPIESupported)
  check_pie_supported()
  add_compile_options(-fstack-protector-strong -D_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()
if(KV_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Precompiled standard headers, for all builds but "dev", which goes without and so sees that every file includes what it
# uses. kv_reuse_precompiled(TARGET FROM) takes those of another target, which must be compiled with the same options.
set(KV_PRECOMPILED <algorithm> <filesystem> <functional> <map> <memory> <string> <string_view> <variant> <vector>)
function(kv_precompile target)
  if(KV_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL Release)
    target_precompile_headers(${target} PRIVATE ${KV_PRECOMPILED} ${ARGN})
  endif()
endfunction()
function(kv_reuse_precompiled target from)
  if(KV_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL Release)
    target_precompile_headers(${target} REUSE_FROM ${from})
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON)
  endif()
endfunction()

# One small source file a header, so that each is known to compile alone.
function(kv_check_headers target)
  set(sources "")
  foreach(header IN LISTS ARGN)
    file(RELATIVE_PATH path ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/${header})
    string(REPLACE "/" "_" stem ${path})
    set(source ${CMAKE_CURRENT_BINARY_DIR}/alone/${stem}.cpp)
    if(NOT EXISTS ${source})
      file(WRITE ${source} "#include \"${path}\"\n")
    endif()
    list(APPEND sources ${source})
  endforeach()
  add_library(${target} OBJECT ${sources})
  kv_separate_sources(${target})
  target_link_libraries(${target} PRIVATE kv_options)
endfunction()

# kv_sources(TARGET FOLDER...): all sources of these folders, without those below them, belong to the target.
function(kv_sources target)
  foreach(folder IN LISTS ARGN)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    target_sources(${target} PRIVATE ${sources})
  endforeach()
endfunction()
