# ngi_layer(NAME [DIR dir] DEPS libs... [TEST_DEPS libs...] [EXTRA_SOURCES files...] [EXTRA_TESTS files...])
#
# Builds every *.cpp of the current folder (or DIR) except *_test.cpp into the
# static library ngi_NAME, and every *_test.cpp (and EXTRA_TESTS) into the
# test program NAME_tests, registered with ctest test by test. A folder without sources
# yet becomes an interface library so that layers above can name it already.
#
# The Windows build leaves out two kinds of tests that hold only on Linux:
# *_posix_test.cpp (they stand on what Linux alone has: fork and signals,
# symbolic links and file times set by hand, the registry file that
# NGI_REGISTRY_FILE names) and *_e2e_test.cpp (they drive the Linux program
# through that registry file and its volume table; the Windows program's own
# end-to-end checks are in scripts/test-windows.sh).
function(ngi_layer name)
  cmake_parse_arguments(L "" "DIR" "DEPS;TEST_DEPS;EXTRA_SOURCES;EXTRA_TESTS" ${ARGN})
  if(NOT L_DIR)
    set(L_DIR ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  file(GLOB srcs CONFIGURE_DEPENDS ${L_DIR}/*.cpp)
  file(GLOB tests CONFIGURE_DEPENDS ${L_DIR}/*_test.cpp)
  list(FILTER srcs EXCLUDE REGEX "(_test|/main)\\.cpp$")
  list(APPEND tests ${L_EXTRA_TESTS})
  if(WIN32)
    list(FILTER tests EXCLUDE REGEX "_(posix|e2e)_test\\.cpp$")
  endif()
  list(APPEND srcs ${L_EXTRA_SOURCES})
  if(srcs)
    add_library(ngi_${name} STATIC ${srcs})
    target_include_directories(ngi_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(ngi_${name} PUBLIC ${L_DEPS})
  else()
    add_library(ngi_${name} INTERFACE)
    target_include_directories(ngi_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(ngi_${name} INTERFACE ${L_DEPS})
  endif()
  if(NGI_BUILD_TESTS AND tests)
    add_executable(${name}_tests ${tests})
    target_link_libraries(${name}_tests PRIVATE ngi_${name} ngi_testing ${L_TEST_DEPS}
                          GTest::gtest_main GTest::gmock)
    if(CMAKE_CROSSCOMPILING)
      # A Windows .exe cannot list its tests at build time: one ctest test
      # per program, started through CMAKE_CROSSCOMPILING_EMULATOR (Wine),
      # which sees this machine's root as drive Z:.
      add_test(NAME ${name}_tests COMMAND ${name}_tests WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
      # The NTFS fixtures come unpacked (no gzip to call from there).
      set_tests_properties(${name}_tests PROPERTIES TIMEOUT 600 ENVIRONMENT
        "NGI_SOURCE_DIR=Z:${PROJECT_SOURCE_DIR};NGI_BINARY_DIR=Z:${PROJECT_BINARY_DIR};NGI_FIXTURE_IMAGES=Z:${NGI_FIXTURE_IMAGES}")
      if(TARGET ngi_fixture_images)
        add_dependencies(${name}_tests ngi_fixture_images)
      endif()
    else()
      gtest_discover_tests(${name}_tests
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        DISCOVERY_TIMEOUT 60
        # One list item per property: a ";" inside ENVIRONMENT would be split
        # into a second property name by the discovery script.
        PROPERTIES TIMEOUT 600
                   ENVIRONMENT "NGI_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
                   ENVIRONMENT_MODIFICATION "NGI_BINARY_DIR=set:${PROJECT_BINARY_DIR}")
    endif()
  endif()
endfunction()
