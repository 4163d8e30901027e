# Installing and removing, on a machine in memory.
dkpf_test(setup_test unit
    SOURCES unit/setup_test.cpp unit/setup_parts_test.cpp doubles/machine_double.cpp
    LIBS ctl_setup)
