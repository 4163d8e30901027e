# Every call of the collect thread that can fail.
if(TARGET diskperf_testee)
    dkpf_testee_test(collect_fault_test fault SOURCES fault/collect_fault_test.cpp)
endif()
