dkpf_testee_test(write_fault_test fault SOURCES fault/write_fault_test.cpp)
