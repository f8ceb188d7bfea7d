# Warnings and sanitizers, carried by one interface target that every target links.
add_library(kv_options INTERFACE)
target_compile_options(kv_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                            -Wold-style-cast -Woverloaded-virtual $<$<BOOL:${KV_WERROR}>:-Werror>)
# GCC 12 warns of libstdc++'s own string code where it inlines it from precompiled headers.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(kv_options INTERFACE -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow)
endif()
if(KV_SANITIZE)
  set(CMAKE_CXX_FLAGS_DEBUG "-g1")  # lines for the reports; all else costs time and memory in vain
  add_compile_options(-fsanitize=${KV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=undefined -DKV_SANITIZED)
  add_link_options(-fsanitize=${KV_SANITIZE})
endif()
# Several sources are compiled as one, and standard headers beforehand, for all builds but "dev": half the time; "dev" sees
# that every file includes what it uses. Names of unnamed namespaces must differ within a library that is not SEPARATE.
if(KV_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL Release)
  set(KV_PRECOMPILED <algorithm> <filesystem> <functional> <map> <memory> <string> <string_view> <variant> <vector>)
endif()
if(KV_PRECOMPILED OR KV_TIDY)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 24)
endif()
# Debug information makes linking slow; this linker takes a fifth of the time. What is packaged is linked as elsewhere.
find_program(KV_QUICK_LINKER ld.lld)
if(KV_QUICK_LINKER AND CMAKE_BUILD_TYPE STREQUAL Debug)
  add_link_options(-fuse-ld=lld)
endif()
# What is packaged survives less of a mistake: symbols bound and sealed at the start, checked buffers and stacks, and
# programs at an address of the system's choice.
if(CMAKE_BUILD_TYPE STREQUAL Release AND NOT KV_SANITIZE)
  include(CheckPIESupported)
  check_pie_supported()
  add_compile_options(-fstack-protector-strong -D_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()

# kv_target(NAME EXECUTABLE|STATIC|SHARED|MODULE|OBJECT [SEPARATE] [MANUAL] [PRECOMPILED] [FOLDERS ...] [SOURCES ...]
# [WITHOUT REGEX] [HEADERS ...] [HEADERS_OF TARGET] [LIBS ...] [PUBLIC ...] [DEFINE ...] [LINK ...] [NEEDS ...]): a target of
# all sources of these folders, without those below them, and of these sources, but not of those that the expression matches.
# LIBS are linked for itself, PUBLIC for its users, too; LINK gives options to the linker; NEEDS names what it starts or loads.
# SEPARATE: never several sources as one. MANUAL: left out of "all". PRECOMPILED: with the standard headers and HEADERS;
# HEADERS_OF: with another target's.
function(kv_target name kind)
  cmake_parse_arguments(ARG "SEPARATE;MANUAL;PRECOMPILED" "WITHOUT;HEADERS_OF"
                        "FOLDERS;SOURCES;HEADERS;LIBS;PUBLIC;DEFINE;LINK;NEEDS" ${ARGN})
  foreach(folder IN LISTS ARG_FOLDERS)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    list(APPEND ARG_SOURCES ${sources})
  endforeach()
  if(ARG_WITHOUT)
    list(FILTER ARG_SOURCES EXCLUDE REGEX ${ARG_WITHOUT})
  endif()
  if(kind STREQUAL EXECUTABLE)
    add_executable(${name} ${ARG_SOURCES})
  else()
    add_library(${name} ${kind} ${ARG_SOURCES})
  endif()
  set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ${ARG_MANUAL})
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE kv_options ${ARG_LIBS})
  target_link_options(${name} PRIVATE ${ARG_LINK})
  target_compile_definitions(${name} PRIVATE ${ARG_DEFINE})
  add_dependencies(${name} kv_options ${ARG_NEEDS})
  if(ARG_SEPARATE)
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
  endif()
  if(ARG_PRECOMPILED AND KV_PRECOMPILED)
    target_precompile_headers(${name} PRIVATE ${KV_PRECOMPILED} ${ARG_HEADERS})
  elseif(ARG_HEADERS_OF AND KV_PRECOMPILED)
    target_precompile_headers(${name} REUSE_FROM ${ARG_HEADERS_OF})
  endif()
endfunction()
