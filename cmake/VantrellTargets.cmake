# One static library per folder. A folder names the folders below it that it stands on, and
# scripts/check-layers holds its #include lines to that.

# A target whose only job is to carry the precompiled standard headers.
add_library(vantrell_pch STATIC ${CMAKE_SOURCE_DIR}/cmake/pch.cpp)
target_precompile_headers(vantrell_pch PRIVATE ${CMAKE_SOURCE_DIR}/cmake/pch.h)

function(_vantrell_common target)
  target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_precompile_headers(${target} REUSE_FROM vantrell_pch)
  target_link_libraries(${target} PUBLIC fmt::fmt Threads::Threads)
endfunction()

# vantrell_library(platform USES records ... LIBRARIES Boost::headers ...)
function(vantrell_library folder)
  cmake_parse_arguments(ARG "" "" "USES;LIBRARIES" ${ARGN})
  string(REPLACE "/" "_" name ${folder})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${folder}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(NOT sources)
    add_library(vantrell_${name} INTERFACE)
    return()
  endif()
  add_library(vantrell_${name} STATIC ${sources})
  _vantrell_common(vantrell_${name})
  list(TRANSFORM ARG_USES PREPEND vantrell_)
  target_link_libraries(vantrell_${name} PUBLIC ${ARG_USES} PRIVATE ${ARG_LIBRARIES})
endfunction()

# Everything that ./run needs, so that starting the program does not wait for the tests to compile.
add_custom_target(programs)

# vantrell_program(vantrell shell/terminal/main.cpp USES app shell_terminal)
function(vantrell_program name main)
  cmake_parse_arguments(ARG "" "" "USES" ${ARGN})
  if(NOT EXISTS ${CMAKE_SOURCE_DIR}/${main})
    return()
  endif()
  add_executable(${name} ${CMAKE_SOURCE_DIR}/${main})
  _vantrell_common(${name})
  list(TRANSFORM ARG_USES PREPEND vantrell_)
  target_link_libraries(${name} PRIVATE ${ARG_USES})
  add_dependencies(programs ${name})
endfunction()

# vantrell_tests(platform USES platform): every tests/<folder>/*_test.cpp in one program.
function(vantrell_tests folder)
  cmake_parse_arguments(ARG "" "" "USES;LIBRARIES" ${ARGN})
  string(REPLACE "/" "_" name ${folder})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${folder}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name}_tests ${sources})
  _vantrell_common(${name}_tests)
  target_include_directories(${name}_tests PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  list(TRANSFORM ARG_USES PREPEND vantrell_)
  target_link_libraries(${name}_tests PRIVATE ${ARG_USES} ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name}_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 300)
endfunction()

# vantrell_small_programs(bench): every <kind>/<folder>/<name>_<kind>.cpp
# becomes a program <name>_<kind> that stands on src/<folder>.
function(vantrell_small_programs kind)
  file(GLOB_RECURSE sources RELATIVE ${CMAKE_SOURCE_DIR}/${kind} CONFIGURE_DEPENDS
       ${CMAKE_SOURCE_DIR}/${kind}/*_${kind}.cpp)
  foreach(source IN LISTS sources)
    get_filename_component(name ${source} NAME_WE)
    get_filename_component(folder ${source} DIRECTORY)
    string(REPLACE "/" "_" folder "${folder}")
    add_executable(${name} ${CMAKE_SOURCE_DIR}/${kind}/${source})
    _vantrell_common(${name})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/${kind} ${CMAKE_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE vantrell_${folder} ${ARGN})
  endforeach()
endfunction()
