# The library's calls while it holds the region's mutex.
dkpf_test(lock_hold_test unit SOURCES unit/lock_hold_test.cpp LIBS import_watch diskperf_testee)
set_target_properties(lock_hold_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${DKPF_TESTEE_DIR})
add_dependencies(lock_hold_test empty_libraries)
