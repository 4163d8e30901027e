# Collection: the conversion of the device's records, and the collect thread on the double's clock.
if(TARGET diskperf_testee)
    dkpf_testee_test(conversion_test unit SOURCES unit/conversion_test.cpp)
    dkpf_testee_test(collect_thread_test unit SOURCES unit/collect_thread_test.cpp)
endif()
