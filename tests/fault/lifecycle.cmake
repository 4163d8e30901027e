# Every failing call of start, reload and stop.
dkpf_testee_test(lifecycle_fault_test fault SOURCES fault/lifecycle_fault_test.cpp)
