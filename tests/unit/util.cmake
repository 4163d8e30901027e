# Named objects, locks, trace logs; the shared region.
if(TARGET diskperf_testee)
    dkpf_testee_test(util_test unit SOURCES unit/util_test.cpp unit/traced_fixture.cpp)
endif()
