# How our own code is compiled: language level, warnings, sanitizers, compiler cache.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(ORVEXA_CCACHE ccache)
if(ORVEXA_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
      CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} ${ORVEXA_CCACHE})
endif()

add_library(orvexa_compile INTERFACE)
target_compile_options(
  orvexa_compile INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND ORVEXA_PRECOMPILE)
  target_compile_options(orvexa_compile INTERFACE -fpch-preprocess -Winvalid-pch)
endif()
if(ORVEXA_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "ORVEXA_BUILD_FUZZERS needs Clang, because the fuzzer is a part of it: set CXX=clang++.")
  endif()
  target_compile_options(orvexa_compile INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(orvexa_compile INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(ORVEXA_SANITIZE)
  # A sanitizer instruments the optimiser's output in ways that make GCC's flow warnings guess wrongly.
  target_compile_options(orvexa_compile INTERFACE -fsanitize=${ORVEXA_SANITIZE} -fno-omit-frame-pointer
                                                  -fno-sanitize-recover=all
                                                  $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(orvexa_compile INTERFACE -fsanitize=${ORVEXA_SANITIZE})
endif()

# One floor of the house: a static library made of every source file in its folder. A new operation is a new file; no
# list needs editing, and the registry's own table is what says which operations exist.
function(orvexa_add_floor name)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main/main\\.cpp$")
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.h)
  add_library(orvexa_${name} STATIC)
  add_library(orvexa::${name} ALIAS orvexa_${name})
  target_sources(orvexa_${name} PRIVATE ${sources}
                 PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/src FILES ${headers})
  set_target_properties(orvexa_${name} PROPERTIES EXPORT_NAME ${name})
  target_compile_features(orvexa_${name} PUBLIC cxx_std_20)
  target_link_libraries(orvexa_${name} PRIVATE $<BUILD_INTERFACE:orvexa_compile>)
  if(ORVEXA_PRECOMPILE)
    target_precompile_headers(orvexa_${name} PRIVATE ${ARGN})
  endif()
  if(ORVEXA_TIDY)
    set_target_properties(orvexa_${name} PROPERTIES CXX_CLANG_TIDY "clang-tidy;--warnings-as-errors=*;--quiet")
  endif()
endfunction()
