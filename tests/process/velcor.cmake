# The real driver through the service manager, and who talks to it.
include(support/machine.cmake)
dkpf_test(velcor_driver_test process SOURCES process/velcor_driver_test.cpp LIBS test_machine velcorfeed_core
    agent_life version)
add_dependencies(velcor_driver_test velcor tnwdiskfltr velcorfeed)
target_compile_definitions(velcor_driver_test PRIVATE
    DRIVER_FILE="Z:$<TARGET_FILE:velcor>" FILTER_LIBRARY="Z:$<TARGET_FILE:tnwdiskfltr>" FEEDER="Z:$<TARGET_FILE:velcorfeed>"
    PRODUCT_VERSION="${PROJECT_VERSION}")

# 130,000 requests.
dkpf_long_case(velcor_driver_test Driver.EveryBufferLengthHasItsAnswerOnEitherSide)
