# dkpfctl config.
dkpf_test(config_set_test unit SOURCES unit/config_set_test.cpp LIBS ctl_core)
