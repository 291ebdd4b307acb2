# GoogleTest and nlohmann-json: those of the system, or in a build for another system compiled from Debian's source and
# taken from the building machine.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest REQUIRED)
  find_package(nlohmann_json REQUIRED)
  return()
endif()
include(HostHeaders)

# Tests written in Python run on the building machine. Otherwise ctest would start Python through the emulator, and Wine
# loses the status of a program that is not one of Windows.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set_property(TARGET Python3::Interpreter PROPERTY CROSSCOMPILING_EMULATOR "")

find_path(GTEST_SOURCE googletest/src/gtest-all.cc PATHS /usr/src/googletest REQUIRED NO_CMAKE_FIND_ROOT_PATH)
mark_as_advanced(GTEST_SOURCE)
add_library(vorlen_gtest STATIC "${GTEST_SOURCE}/googletest/src/gtest-all.cc"
  "${GTEST_SOURCE}/googlemock/src/gmock-all.cc" "${GTEST_SOURCE}/googletest/src/gtest_main.cc")
set_target_properties(vorlen_gtest PROPERTIES UNITY_BUILD OFF COMPILE_WARNING_AS_ERROR OFF)
target_compile_options(vorlen_gtest PRIVATE -w ${test_options})
target_include_directories(vorlen_gtest PRIVATE "${GTEST_SOURCE}/googletest" "${GTEST_SOURCE}/googlemock"
  SYSTEM PUBLIC "${GTEST_SOURCE}/googletest/include" "${GTEST_SOURCE}/googlemock/include")
add_library(GTest::gmock ALIAS vorlen_gtest)
add_library(GTest::gtest_main ALIAS vorlen_gtest)

vorlen_host_headers(host_headers nlohmann)
add_library(vorlen_host_json INTERFACE)
target_include_directories(vorlen_host_json SYSTEM INTERFACE "${host_headers}")
add_library(nlohmann_json::nlohmann_json ALIAS vorlen_host_json)
