# dkpfctl config on files.
include(support/machine.cmake)
dkpf_test_product(dkpfctl)
dkpf_test(config_process_test process SOURCES process/config_process_test.cpp LIBS test_machine dkpf_shared lib_json)
add_dependencies(config_process_test test_product_dkpfctl)
