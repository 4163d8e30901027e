# What dkpfctl top shows, and its loop.
dkpf_test(top_test unit
    SOURCES unit/top_screen_test.cpp unit/top_loop_test.cpp unit/top_readings.cpp
    LIBS ctl_top)
