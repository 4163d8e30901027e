# What dkpfctl logs reads and shows.
dkpf_test(logs_test unit SOURCES unit/logs_record_test.cpp unit/logs_show_test.cpp unit/logs_follow_test.cpp LIBS ctl_logs
    lib_json)
