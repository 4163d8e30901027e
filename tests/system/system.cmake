# The installed product, run as its user runs it. Each case is a script with a prefix and a home of its own, below
# build/system.

# dkpf_system_program(NAME [LIBS ...]): system/NAME.cpp, a program that scripts start.
function(dkpf_system_program name)
    cmake_parse_arguments(T "" "" "LIBS" ${ARGN})
    add_executable(${name} system/${name}.cpp)
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tools/shared ${CMAKE_SOURCE_DIR}/diskperf/include
        ${CMAKE_SOURCE_DIR}/platform/include)
    target_link_libraries(${name} PRIVATE dkpf_warnings ${T_LIBS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/bin)
endfunction()

dkpf_system_program(hold_file)
dkpf_system_program(perf_queries)
dkpf_system_program(provoke)
dkpf_system_program(broken_screen LIBS ctl_top)
dkpf_system_program(perf_objects LIBS ctl_perf)
target_link_options(perf_objects PRIVATE -municode)

# dkpf_system_test(NAME): system/NAME.py; exit code 0 passes, 77 could not be tried here and counts as skipped.
function(dkpf_system_test name)
    add_test(NAME system.${name} COMMAND /usr/bin/python3 -B ${CMAKE_SOURCE_DIR}/tests/system/${name}.py)
    set_tests_properties(system.${name} PROPERTIES LABELS system TIMEOUT 300 SKIP_RETURN_CODE 77)
endfunction()

dkpf_system_test(constant_loads)
dkpf_system_test(pandas_reads)
dkpf_system_test(host_disk)
dkpf_system_test(host_without_disk)
dkpf_system_test(driver_missing)
dkpf_system_test(driver_restart)
dkpf_system_test(feeder_killed)
dkpf_system_test(console_agent)
dkpf_system_test(broken_configuration)
dkpf_system_test(config_set)
dkpf_system_test(sixty_four_disks)
dkpf_system_test(rotation)
dkpf_system_test(killed_agent)
dkpf_system_test(disk_full)
dkpf_system_test(folders)
dkpf_system_test(stop_full_disk)
dkpf_system_test(performance_library)
dkpf_system_test(install_cycle)
dkpf_system_test(install_broken_off)
dkpf_system_test(run_script)
dkpf_system_test(doctor_agent)
dkpf_system_test(doctor_host)
# The longest are started first.
set_tests_properties(system.doctor_agent system.doctor_host system.install_cycle PROPERTIES TIMEOUT 900 COST 900)
set_tests_properties(system.performance_library PROPERTIES COST 500)
