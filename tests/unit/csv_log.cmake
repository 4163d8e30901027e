# The CSV log's files and the write thread.
dkpf_testee_test(csv_files_test unit SOURCES unit/csv_files_test.cpp)
dkpf_testee_test(write_thread_test unit SOURCES unit/write_thread_test.cpp)
