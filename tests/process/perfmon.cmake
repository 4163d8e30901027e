# The provider of performance data in real processes: many readers, direct calls, the system's Performance Library.
include(support/machine.cmake)

dkpf_test(perfmon_process_test process SOURCES process/diskperf_readers_test.cpp process/perfmon_buffer_test.cpp
    process/perfmon_library_test.cpp LIBS test_machine dkpf_shared)
add_dependencies(perfmon_process_test test_product_diskperf_role)
