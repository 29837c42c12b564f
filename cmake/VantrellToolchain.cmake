# Compiler settings that every target shares. Warnings are errors: a warning left standing is
# one that nobody reads.

option(VANTRELL_TESTS "Build the tests" ON)
option(VANTRELL_BENCHMARKS "Build the benchmarks" OFF)
option(VANTRELL_FUZZ "Build the fuzz targets (clang only)" OFF)
option(VANTRELL_DESKTOP "Build what stands on Qt" ON)
set(VANTRELL_SANITIZER "" CACHE STRING "Sanitizers, as -fsanitize takes them")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                    -Wimplicit-fallthrough -Werror
                    # Designated initializers leave out what keeps its default.
                    -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 reports these falsely for std::string and std::optional when it optimizes.
  add_compile_options(-Wno-restrict -Wno-maybe-uninitialized -Wno-array-bounds
                      -Wno-stringop-overflow -Wno-stringop-overread)
endif()

if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # The library's own stable_sort uses a function that it declares deprecated.
  add_compile_options(-Wno-deprecated-declarations)
endif()

# CMake gives -fPIC to libraries and -fPIE to programs, but a precompiled header serves both only
# when the setting is the same. Qt asks for -fPIC, which without interposition costs no speed.
add_compile_options(-fPIC -fno-semantic-interposition)

if(VANTRELL_SANITIZER)
  add_compile_options(-fsanitize=${VANTRELL_SANITIZER} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VANTRELL_SANITIZER})
  if(VANTRELL_SANITIZER MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Boost.Asio uses fences that GCC's thread sanitizer warns it cannot model.
    add_compile_options(-Wno-tsan)
  endif()
endif()

if(VANTRELL_FUZZ)
  # The fuzzer steers by what the code under test covers, so all of it is instrumented.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(VANTRELL_CCACHE ccache)
if(VANTRELL_CCACHE)
  # Without these ccache takes no file that uses a precompiled header, so none at all.
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${VANTRELL_CCACHE})
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endif()

find_program(VANTRELL_LLD NAMES ld.lld ld.lld-19)
if(VANTRELL_LLD)
  add_link_options(-fuse-ld=lld)
endif()

find_package(Threads REQUIRED)
find_package(fmt REQUIRED)

# For every target alike: a precompiled header is good for one set of definitions only.
add_compile_definitions(VANTRELL_VERSION="${PROJECT_VERSION}")
set(VANTRELL_RELAY_URL "" CACHE STRING
  "Relay of remote control where the user has set none, as wss://relay.example/remote/connect")
