# Tests of the agent and of the control tool.
dkpf_test(agent_test unit
    SOURCES unit/agent_life_test.cpp unit/agent_stop_watch_test.cpp unit/agent_guard_test.cpp
        unit/agent_console_test.cpp unit/agent_driver_test.cpp
    LIBS agent_life)
dkpf_test(ctl_test unit
    SOURCES unit/ctl_agent_state_test.cpp unit/ctl_region_test.cpp unit/ctl_dump_test.cpp unit/ctl_event_log_test.cpp
        unit/ctl_shared_test.cpp unit/ctl_reload_test.cpp unit/ctl_status_test.cpp
    LIBS ctl_core)
