# The product in several real processes, with the real platform libraries, driver and named objects.
include(support/machine.cmake)

add_executable(diskperf_role process/diskperf_role.cpp)
target_include_directories(diskperf_role PRIVATE ${CMAKE_SOURCE_DIR}/diskperf/include ${CMAKE_SOURCE_DIR}/platform/include)
target_link_libraries(diskperf_role PRIVATE dkpf_warnings)
dkpf_test_product(diskperf_role)

dkpf_test(diskperf_process_test process SOURCES process/diskperf_region_test.cpp process/diskperf_samples_test.cpp
    LIBS test_machine dkpf_shared)
add_dependencies(diskperf_process_test test_product_diskperf_role)
