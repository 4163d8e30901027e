# The filter library on a device that the test answers for.
include(support/test_home.cmake)
dkpf_test_product(tnwdiskfltr)
dkpf_test(tnwdiskfltr_test unit SOURCES unit/tnwdiskfltr_test.cpp LIBS test_home)
