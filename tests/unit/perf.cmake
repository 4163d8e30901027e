# Readers of the performance object.
dkpf_test(perf_test unit
    SOURCES unit/perf_block_test.cpp unit/perf_names_test.cpp unit/perf_reader_test.cpp
        unit/perf_query_test.cpp unit/perf_hold_test.cpp
    LIBS ctl_core)
