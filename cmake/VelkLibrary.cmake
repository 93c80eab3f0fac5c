# Headers that most translation units parse: compiled once per target, which roughly halves the
# build time of the test suites (CI builds the project three times on two cores).
set(VELK_COMMON_HEADERS <string> <vector> <memory> <optional> <functional> <map> <mutex>)

# velk_add_library(NAME [DIR subfolder] DEPS ... [PRIVATE_DEPS ...])
# One static library per subsystem, built from every .cpp file in its folder (not below it), so
# that adding a class is adding its files. A subsystem's headers live beside its sources and are
# included as "<subsystem>/Name.h"; the few that hosts use are the installed front, include/velk/.
function(velk_add_library name)
  cmake_parse_arguments(ARG "" "DIR" "DEPS;PRIVATE_DEPS" ${ARGN})
  set(dir ${CMAKE_CURRENT_SOURCE_DIR})
  if(ARG_DIR)
    set(dir ${dir}/${ARG_DIR})
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(NOT sources)
    # A subsystem that has no code yet still links, so that its dependants build.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE velk_warnings ${ARG_PRIVATE_DEPS})
  list(LENGTH sources source_count)
  if(source_count GREATER 2)
    set(headers ${VELK_COMMON_HEADERS})
    if("nlohmann_json::nlohmann_json" IN_LIST ARG_DEPS)
      list(APPEND headers <nlohmann/json.hpp>)
    endif()
    target_precompile_headers(${name} PRIVATE ${headers})
  endif()
endfunction()

# velk_add_test_suite(NAME DIR folder DEPS ...)
# One test executable per folder of tests/, from every .cpp file there. Test suites whose name
# ends in "ConcurrencyTest" are the ones the ThreadSanitizer run selects.
function(velk_add_test_suite name)
  cmake_parse_arguments(ARG "" "DIR" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${ARG_DIR}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} velk_test_support GTest::gmock_main velk_warnings)
  target_precompile_headers(${name} PRIVATE ${VELK_COMMON_HEADERS} <gtest/gtest.h> <gmock/gmock.h>
    <nlohmann/json.hpp>)
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    PROPERTIES ENVIRONMENT "VELK_SOURCE_DIR=${PROJECT_SOURCE_DIR};VELK_BINARY_DIR=${PROJECT_BINARY_DIR}"
    DISCOVERY_TIMEOUT 60)
endfunction()
