# Named objects, locks, trace logs; the shared region.
if(TARGET diskperf_testee)
    dkpf_testee_test(util_test unit SOURCES unit/util_test.cpp unit/traced_fixture.cpp)
    dkpf_testee_test(region_test unit SOURCES unit/region_layout_test.cpp unit/region_life_test.cpp unit/region_access_test.cpp
        unit/region_fixture.cpp unit/region_model.cpp unit/traced_fixture.cpp)
endif()
