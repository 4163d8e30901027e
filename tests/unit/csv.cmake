# The texts of the CSV files, and what of them is kept whole in tests/golden.
if(TARGET diskperf_testee)
    foreach(name csv_header csv_line banner)
        dkpf_testee_test(${name}_test unit SOURCES unit/${name}_test.cpp)
        target_compile_definitions(${name}_test PRIVATE DKPF_GOLDEN_DIR="${CMAKE_SOURCE_DIR}/tests/golden/")
    endforeach()
endif()
