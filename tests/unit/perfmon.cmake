# The Performance Monitor provider.
dkpf_testee_test(perfmon_query_test unit SOURCES unit/perfmon_query_test.cpp)
dkpf_testee_test(perfmon_block_test unit SOURCES unit/perfmon_block_test.cpp)
dkpf_testee_test(perfmon_entry_test unit SOURCES unit/perfmon_entry_test.cpp)
