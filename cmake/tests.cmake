include(GoogleTest)

# sndx_test_sources(VARIABLE PATTERN …)
# The test sources of a folder for this target: those of the other one alone are named so.
macro(sndx_test_sources variable)
  file(GLOB ${variable} CONFIGURE_DEPENDS ${ARGN})
  if(WIN32)
    list(FILTER ${variable} EXCLUDE REGEX "_native_test\\.cpp$")
  else()
    list(FILTER ${variable} EXCLUDE REGEX "_windows_test\\.cpp$")
  endif()
endmacro()

# sndx_add_test(NAME SOURCES … [LIBS …])
# One test program; every test of it is run in a process of its own, natively with a private root folder.
# Under Wine a test has a prefix (registry, pipe names, trace files) to itself: scripts/wine-test.sh.
function(sndx_add_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBS} sndx_testsupport sndx_warnings sndx_platform)
  # Not optimised: compiling tests is most of a build.
  target_compile_options(${name} PRIVATE -fno-sized-deallocation -O0)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # Fixtures stand in unnamed namespaces; GCC takes a source that another one includes for a header.
    target_compile_options(${name} PRIVATE -Wno-subobject-linkage)
  endif()
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  if(WIN32)
    target_link_options(${name} PRIVATE -static)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300)
endfunction()
