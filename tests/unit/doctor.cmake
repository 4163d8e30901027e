# What the doctor finds, from facts that the tests write; nothing here asks the machine.
dkpf_test(doctor_test unit SOURCES unit/doctor_test.cpp unit/pe_exports_test.cpp LIBS ctl_core)
