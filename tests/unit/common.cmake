# Life cycle and shared computation of the library.
dkpf_testee_test(common_test unit
    SOURCES unit/config_test.cpp unit/strings_test.cpp unit/warning_event_test.cpp unit/lifecycle_test.cpp
        unit/display_value_test.cpp unit/display_model_test.cpp)
