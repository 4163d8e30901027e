# The installed product, run as its user runs it. Each case is a script with a prefix and a home of its own, below
# build/system.
add_executable(hold_file system/hold_file.cpp)
target_link_libraries(hold_file PRIVATE dkpf_warnings)
set_target_properties(hold_file PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/bin)
add_executable(perf_queries system/perf_queries.cpp)
target_link_libraries(perf_queries PRIVATE dkpf_warnings)
set_target_properties(perf_queries PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/bin)

add_executable(provoke system/provoke.cpp)
target_include_directories(provoke PRIVATE ${CMAKE_SOURCE_DIR}/tools/shared ${CMAKE_SOURCE_DIR}/diskperf/include
    ${CMAKE_SOURCE_DIR}/platform/include)
target_link_libraries(provoke PRIVATE dkpf_warnings)
set_target_properties(provoke PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/bin)

add_executable(perf_objects system/perf_objects.cpp)
target_link_options(perf_objects PRIVATE -municode)
target_link_libraries(perf_objects PRIVATE ctl_perf dkpf_warnings)
set_target_properties(perf_objects PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/bin)

# dkpf_system_test(NAME): system/NAME.py; exit code 0 passes.
function(dkpf_system_test name)
    add_test(NAME system.${name} COMMAND /usr/bin/python3 -B ${CMAKE_SOURCE_DIR}/tests/system/${name}.py)
    set_tests_properties(system.${name} PROPERTIES LABELS system TIMEOUT 300)
endfunction()

dkpf_system_test(constant_loads)
dkpf_system_test(pandas_reads)
dkpf_system_test(host_disk)
dkpf_system_test(host_without_disk)
dkpf_system_test(driver_missing)
dkpf_system_test(driver_restart)
dkpf_system_test(broken_configuration)
dkpf_system_test(config_set)
dkpf_system_test(sixty_four_disks)
dkpf_system_test(rotation)
dkpf_system_test(killed_agent)
dkpf_system_test(disk_full)
dkpf_system_test(folders)
dkpf_system_test(performance_library)
dkpf_system_test(install_cycle)
dkpf_system_test(doctor)
set_tests_properties(system.doctor PROPERTIES TIMEOUT 900)  # 40 findings, a minute or three
