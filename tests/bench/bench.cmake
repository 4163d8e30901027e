# Programs of ./bench; no part of an ordinary build. They run in the bin of a home that ./bench makes.
if(EXISTS /usr/include/spdlog)
    dkpf_header_library(lib_spdlog spdlog)
    target_compile_definitions(lib_spdlog INTERFACE SPDLOG_FMT_EXTERNAL SPDLOG_HEADER_ONLY)
    target_link_libraries(lib_spdlog INTERFACE lib_fmt)

    # dkpf_bench(NAME [LIBS ...]): bench/NAME_bench.cpp
    function(dkpf_bench name)
        add_executable(${name}_bench EXCLUDE_FROM_ALL bench/${name}_bench.cpp bench/race.cpp)
        target_include_directories(${name}_bench PRIVATE ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR}/platform/include
            ${CMAKE_SOURCE_DIR}/diskperf/include)
        target_compile_options(${name}_bench PRIVATE -O2)  # the peers are measured as a user would build them
        target_link_libraries(${name}_bench PRIVATE dkpf_warnings ${ARGN})
        set_target_properties(${name}_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
    endfunction()

    dkpf_bench(trace tnwlog_import lib_spdlog)
    dkpf_bench(csv tnwlog_import)
    dkpf_bench(store diskperf_testee)
    include(support/machine.cmake)
    dkpf_bench(memory test_machine tnwdiskperf psapi)
    add_executable(empty_program EXCLUDE_FROM_ALL bench/empty_program.cpp)
    target_link_libraries(empty_program PRIVATE dkpf_warnings)
    target_link_options(empty_program PRIVATE -Wl,--file-alignment,4096)  # as what is shipped
    set_target_properties(empty_program PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
    add_custom_target(benches DEPENDS trace_bench csv_bench store_bench memory_bench empty_program stage)
endif()
