# The real driver through the service manager, and who talks to it.
include(support/machine.cmake)
dkpf_test(velcor_driver_test process SOURCES process/velcor_driver_test.cpp LIBS test_machine velcorfeed_core version)
add_dependencies(velcor_driver_test velcor tnwdiskfltr velcorfeed)
target_compile_definitions(velcor_driver_test PRIVATE
    DRIVER_FILE="Z:$<TARGET_FILE:velcor>" FILTER_LIBRARY="Z:$<TARGET_FILE:tnwdiskfltr>" FEEDER="Z:$<TARGET_FILE:velcorfeed>"
    PRODUCT_VERSION="${PROJECT_VERSION}")

# The long form of this case makes 130,000 requests.
set(case EveryBufferLengthHasItsAnswerOnEitherSide)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/velcor_timeouts.cmake
    "set_tests_properties(velcor_driver_test.Driver.${case} PROPERTIES TIMEOUT 900)\n")
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/velcor_timeouts.cmake)
