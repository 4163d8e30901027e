# The test machinery's own tests.
dkpf_hooked_test(doubles_test unit SOURCES unit/doubles_test.cpp LIBS probe)
if(TARGET diskperf_testee)
    dkpf_testee_test(testee_test unit SOURCES unit/testee_test.cpp)
endif()
