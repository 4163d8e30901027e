# dkpfctl logs beside real writers, and the events that the real library raises.
include(support/machine.cmake)

dkpf_test_product(dkpfctl)
dkpf_test_product(tnwlog_writer)
dkpf_test(logs_process_test process SOURCES process/logs_follow_test.cpp process/logs_events_test.cpp
    LIBS test_machine dkpf_shared lib_json)
add_dependencies(logs_process_test test_product_dkpfctl test_product_tnwlog_writer test_product_diskperf_role)
