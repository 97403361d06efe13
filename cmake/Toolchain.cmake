# Language level, warnings, sanitizers, ccache: what every target is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # ccache can share objects built with precompiled headers only when told to trust their definitions and times.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
      ${CCACHE_PROGRAM})
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wimplicit-fallthrough)
# Once it optimises, GCC 12 takes the inactive alternatives of every std::variant for uninitialised, and sees overlaps
# and overflows in the concatenation of std::string that cannot happen.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized$<SEMICOLON>-Wno-restrict$<SEMICOLON>-Wno-stringop-overflow$<SEMICOLON>-Wno-stringop-overread$<SEMICOLON>-Wno-array-bounds>)
if(VORNEX_WERROR)
  add_compile_options(-Werror)
endif()

if(VORNEX_SANITIZE)
  add_compile_options(-fsanitize=${VORNEX_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VORNEX_SANITIZE})
  if(VORNEX_SANITIZE MATCHES "thread")
    # GCC warns of fences, which ThreadSanitizer does not see; Asio's are covered by its locks.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  endif()
  if(VORNEX_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

# The standard headers that nearly every file includes.
function(vornex_precompile target)
  target_precompile_headers(${target} PRIVATE
    <algorithm> <atomic> <chrono> <condition_variable> <filesystem> <functional> <map> <memory> <mutex> <optional>
    <string> <string_view> <unordered_map> <variant> <vector> <fmt/format.h> <tl/expected.hpp>)
endfunction()
