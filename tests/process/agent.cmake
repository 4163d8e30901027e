# The agent as a service, and the operator's tool.
include(support/machine.cmake)

dkpf_test_product(dkpfagent)
dkpf_test_product(dkpfctl)
dkpf_test(agent_process_test process SOURCES process/agent_process_test.cpp LIBS test_machine dkpf_shared lib_json)
add_dependencies(agent_process_test test_product_dkpfagent test_product_dkpfctl)

# 310 s are what a hanging stop gets.
dkpf_long_case(agent_process_test Agent.AStopThatHangsShowsRisingCheckPointsAndIsGivenUpAfter310Seconds)
