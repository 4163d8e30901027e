# Failures of named objects, locks, trace logs; of the shared region.
if(TARGET diskperf_testee)
    dkpf_testee_test(util_fault_test fault SOURCES fault/util_fault_test.cpp unit/traced_fixture.cpp)
    dkpf_testee_test(region_fault_test fault SOURCES fault/region_fault_test.cpp
        unit/region_fixture.cpp unit/region_model.cpp unit/traced_fixture.cpp)
endif()
