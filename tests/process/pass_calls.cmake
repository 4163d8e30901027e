# What the worker threads ask of the system, in a home with the shipped libraries.
include(support/machine.cmake)
dkpf_test(pass_calls_test process SOURCES process/pass_calls_test.cpp LIBS test_machine import_watch)
