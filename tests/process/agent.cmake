# The agent as a service, and the operator's tool.
include(support/machine.cmake)

dkpf_test_product(dkpfagent)
dkpf_test_product(dkpfctl)
dkpf_test(agent_process_test process SOURCES process/agent_process_test.cpp LIBS test_machine dkpf_shared lib_json)
add_dependencies(agent_process_test test_product_dkpfagent test_product_dkpfctl)

# The long form of this case takes the 310 s at which a hanging stop is given up.
set(case AStopThatHangsShowsRisingCheckPointsAndIsGivenUpAfter310Seconds)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/agent_timeouts.cmake
    "set_tests_properties(agent_process_test.Agent.${case} PROPERTIES TIMEOUT 900)\n")
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/agent_timeouts.cmake)
