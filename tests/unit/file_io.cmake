# Whole files, read and replaced.
dkpf_test(file_io_test unit SOURCES unit/file_io_test.cpp LIBS dkpf_shared import_hooks)
