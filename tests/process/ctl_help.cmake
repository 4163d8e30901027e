# What dkpfctl says of itself.
include(support/machine.cmake)
dkpf_test_product(dkpfctl)
dkpf_test(ctl_help_test process SOURCES process/ctl_help_test.cpp LIBS test_machine)
add_dependencies(ctl_help_test test_product_dkpfctl)
