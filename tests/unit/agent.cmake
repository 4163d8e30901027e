# Tests of the agent and of the control tool.
dkpf_test(agent_test unit
    SOURCES unit/agent_life_test.cpp unit/agent_stop_watch_test.cpp unit/agent_guard_test.cpp
    LIBS agent_life)
