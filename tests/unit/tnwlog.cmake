# The logging library, loaded from a home of its own in every test.
include(support/test_home.cmake)
dkpf_test_product(tnwlog)
dkpf_test_product(tnwmsg)

dkpf_test(tnwlog_strings_test unit SOURCES unit/tnwlog_strings_test.cpp LIBS test_home)
dkpf_test(tnwlog_trace_test unit SOURCES unit/tnwlog_trace_test.cpp LIBS test_home import_watch)
dkpf_test(tnwlog_events_test unit SOURCES unit/tnwlog_events_test.cpp LIBS test_home)
dkpf_test(tnwlog_csv_test unit SOURCES unit/tnwlog_csv_test.cpp LIBS test_home import_watch)

# Role program: one writer of a trace log, in a process of its own.
add_executable(tnwlog_writer process/tnwlog_writer.cpp)
target_include_directories(tnwlog_writer PRIVATE ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR}/platform/include)
target_link_libraries(tnwlog_writer PRIVATE test_home import_watch dkpf_warnings)
dkpf_test_product(tnwlog_writer)
dkpf_test(tnwlog_process_test process SOURCES process/tnwlog_process_test.cpp LIBS test_home)
# 400,000 lines.
dkpf_long_case(tnwlog_process_test Writers.EightProcessesLoseTearAndReorderNothingOverManyRotations)
