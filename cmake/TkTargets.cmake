# Conventions shared by every subsystem folder:
#   NAME.h / NAME.cpp   the library (one static library per folder)
#   NAME_test.cpp       its unit tests, gathered into one NAME_test binary per folder
#   main.cpp            the program of a folder that has one (not part of the library)

# tk_library(NAME DEPS dep...): the static library of the current folder.
function(tk_library name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "(_test|/main)\\.cpp$")
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

# tk_tests(LIBRARY [DEPS extra...]): NAME_test from the folder's *_test.cpp files, with the
# shared helpers of testing/.
# Tests find their data through TK_SOURCE_DIR and the built programs through TK_BIN_DIR.
function(tk_tests library)
  if(NOT TK_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp)
  if(NOT tests)
    return()
  endif()
  add_executable(${library}_test ${tests})
  target_link_libraries(${library}_test PRIVATE ${library} ${ARG_DEPS} tk_testing GTest::gtest_main
    GTest::gmock)
  target_compile_definitions(${library}_test PRIVATE
    TK_SOURCE_DIR="${PROJECT_SOURCE_DIR}" TK_BIN_DIR="${CMAKE_BINARY_DIR}/bin")
  gtest_discover_tests(${library}_test
    TEST_PREFIX "${library}."
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300)
endfunction()

# tk_gzip(OUTPUTS file...): rules that compress each file as Debian wants its manual
# pages and changelogs (gzip -9n: best compression, no name or time stamp, so the same
# input always gives the same bytes) into the current binary folder as NAME.gz. The
# list of those .gz paths is set in OUTPUTS; a target that depends on them makes them.
function(tk_gzip outputs)
  set(result)
  foreach(file ${ARGN})
    get_filename_component(name ${file} NAME)
    get_filename_component(source ${file} ABSOLUTE)
    set(gz ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz)
    add_custom_command(OUTPUT ${gz}
      COMMAND gzip -9nc ${source} > ${gz}
      DEPENDS ${source}
      COMMENT "Compressing ${name}"
      VERBATIM)
    list(APPEND result ${gz})
  endforeach()
  set(${outputs} ${result} PARENT_SCOPE)
endfunction()
