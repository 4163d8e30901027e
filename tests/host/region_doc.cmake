# The offset tables of the document against the records of the header.
dkpf_host_test(region_doc COMMAND python3 ${CMAKE_SOURCE_DIR}/tests/host/region_doc
    ${CMAKE_SOURCE_DIR}/diskperf/include/diskperf.h ${CMAKE_SOURCE_DIR}/docs/region.md)
