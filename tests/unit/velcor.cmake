# What the simulated driver's feeder is made of.
dkpf_test(velcor_feed_test unit
    SOURCES unit/velcor_diskstats_test.cpp unit/velcor_disk_map_test.cpp unit/velcor_model_test.cpp
            unit/velcor_host_test.cpp unit/velcor_scenario_test.cpp unit/velcor_journal_test.cpp
            unit/velcor_feeder_test.cpp
    LIBS velcorfeed_core import_hooks)
target_compile_definitions(velcor_feed_test PRIVATE
    SCENARIO_FOLDER="Z:${CMAKE_SOURCE_DIR}/platform/velcor/scenarios")
