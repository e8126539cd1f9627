# Compiler and linker flags travel in interface targets, so that what is built of others is left alone.

option(CORVANE_FUZZ "Build the fuzzers with libFuzzer (needs clang)" OFF)
set(CORVANE_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

add_library(corvane_flags INTERFACE)
target_compile_options(corvane_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
# GCC 12 sees overlapping copies in its own std::string at -O2 where there are none.
target_compile_options(corvane_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# What a mutex guards is touched only while it is held (ThreadAnnotations.h).
target_compile_options(corvane_flags INTERFACE $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>)
target_include_directories(corvane_flags INTERFACE ${PROJECT_SOURCE_DIR})
# Files beyond 2 GB also where a system's off_t is 32 bits wide.
target_compile_definitions(corvane_flags INTERFACE _FILE_OFFSET_BITS=64)

option(CORVANE_COVERAGE "Count what runs, for scripts/coverage.sh (needs gcc)" OFF)
if(CORVANE_COVERAGE)
  # Threads count together.
  target_compile_options(corvane_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(corvane_flags INTERFACE --coverage)
endif()

if(CORVANE_SANITIZE)
  target_compile_options(corvane_flags INTERFACE
    -fsanitize=${CORVANE_SANITIZE}
    -fno-omit-frame-pointer
    -fno-sanitize-recover=all
  )
  target_link_options(corvane_flags INTERFACE -fsanitize=${CORVANE_SANITIZE})
  # This check opens a pipe to look at an object and takes it for broken when it cannot: tests leave processes without
  # descriptors on purpose.
  target_compile_options(corvane_flags INTERFACE -fno-sanitize=vptr)
  # With sanitizers GCC takes its own std::function inside std::regex for uninitialized.
  target_compile_options(corvane_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
else()
  # The engine runs on machines that nobody prepared: only the C library may be missing from the binary.
  target_compile_options(corvane_flags INTERFACE -fstack-protector-strong)
  target_compile_definitions(corvane_flags INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
endif()

add_library(corvane_static_runtime INTERFACE)
if(NOT CORVANE_SANITIZE AND NOT CMAKE_SYSTEM_NAME STREQUAL "Darwin")
  target_link_options(corvane_static_runtime INTERFACE
    -static-libstdc++
    -static-libgcc
    -Wl,--as-needed
    -Wl,-z,relro
    -Wl,-z,now
  )
endif()

# corvane_library(NAME source...): one static library per folder, with the project's flags.
function(corvane_library name)
  add_library(${name} STATIC ${ARGN})
  target_link_libraries(${name} PUBLIC corvane_flags)
endfunction()
