# Test programs of the tree and of the conformance kit.
include(GoogleTest)

if(NOT DEFINED knx_test_timeout)
    set(knx_test_timeout 120)
endif()

# knx_add_test(<name> SOURCES … [LIBRARIES …] [NOT_EMULATED …]): a test program linked to GoogleTest and GoogleMock with
# a main(), its cases registered with ctest, under emulation those that are NOT_EMULATED excepted.
function(knx_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES;PROPERTIES;NOT_EMULATED")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main)
    # What is tested is optimised; optimising the matchers too would double the time of a build.
    target_compile_options(${name} PRIVATE -O0)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    set(filter)
    if(arg_NOT_EMULATED AND CMAKE_CROSSCOMPILING_EMULATOR)
        list(JOIN arg_NOT_EMULATED ":" cases)
        set(filter TEST_FILTER "-${cases}")
    endif()
    # A parameter stands under its name, not its value: a value may be as long as a file, or an address in memory.
    gtest_discover_tests(${name} TEST_PREFIX "${name}." NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 ${filter}
        PROPERTIES TIMEOUT ${knx_test_timeout} ${arg_PROPERTIES})
endfunction()
