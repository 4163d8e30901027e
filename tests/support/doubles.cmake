# The library under test and everything that stands around it.

# Doubles of the platform libraries, each linkable in place of the real import library.
foreach(name tnwlog tnwxml tnwdiskfltr)
    add_library(${name}_double STATIC ${CMAKE_SOURCE_DIR}/tests/doubles/${name}_double.cpp)
    target_link_libraries(${name}_double PUBLIC journal PRIVATE dkpf_warnings)
endforeach()
add_library(journal STATIC ${CMAKE_SOURCE_DIR}/tests/doubles/journal.cpp)
target_include_directories(journal PUBLIC ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR}/platform/include)
target_link_libraries(journal PRIVATE dkpf_warnings)

# The operating system's double, the hooks, and the fixtures.
add_library(doubles STATIC
    ${CMAKE_SOURCE_DIR}/tests/doubles/os_double.cpp ${CMAKE_SOURCE_DIR}/tests/doubles/velcor_double.cpp
    ${CMAKE_SOURCE_DIR}/tests/support/platform_hooks.cpp
    ${CMAKE_SOURCE_DIR}/tests/support/hooked_module.cpp ${CMAKE_SOURCE_DIR}/tests/support/fixture.cpp)
target_include_directories(doubles PRIVATE ${CMAKE_SOURCE_DIR}/diskperf/include)
target_link_libraries(doubles PUBLIC tnwlog_double tnwxml_double tnwdiskfltr_double import_hooks gtest gmock PRIVATE dkpf_warnings)

# Programs with doubles live in a folder of their own. Beside them lie the library under test and, because the loader wants
# them, empty platform libraries whose routines end the program: every import slot is replaced before anything is called.
set(DKPF_TESTEE_DIR ${CMAKE_BINARY_DIR}/tests/testee)
foreach(name tnwlog tnwxml tnwdiskfltr)
    set(def ${CMAKE_SOURCE_DIR}/platform/import/${name}.def)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${def})
    file(STRINGS ${def} lines REGEX "@[0-9]+")
    set(source "/* Made from ${name}.def. */\n#include \"support/empty_library.h\"\n\n")
    foreach(line ${lines})
        string(REGEX MATCH "[A-Za-z0-9_]+" routine "${line}")
        string(APPEND source "EMPTY_ROUTINE(\"${name}\", ${routine})\n")
    endforeach()
    file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/empty_${name}.c CONTENT "${source}" @ONLY)
    add_library(empty_${name} SHARED ${CMAKE_CURRENT_BINARY_DIR}/empty_${name}.c ${def})
    target_include_directories(empty_${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    set_target_properties(empty_${name} PROPERTIES OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${DKPF_TESTEE_DIR}
        ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/empty)
endforeach()
add_custom_target(empty_libraries DEPENDS empty_tnwlog empty_tnwxml empty_tnwdiskfltr)

# A module that imports every call the doubles know: they are tested through it.
add_library(probe SHARED ${CMAKE_SOURCE_DIR}/tests/support/probe.cpp)
target_include_directories(probe PUBLIC ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR}/platform/include)
target_link_libraries(probe PRIVATE dkpf_warnings tnwlog_import tnwxml_import tnwdiskfltr_import version)
target_link_options(probe PRIVATE -Wl,--export-all-symbols)
set_target_properties(probe PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${DKPF_TESTEE_DIR})

# The library under test: the product's own objects and imports, with every routine and global visible.
if(TARGET tnwdiskperf_objects)
    add_library(diskperf_testee SHARED ${CMAKE_SOURCE_DIR}/tests/support/testee_entry.cpp)
    target_link_libraries(diskperf_testee PRIVATE tnwdiskperf_objects dkpf_warnings
        tnwlog_import tnwxml_import tnwdiskfltr_import version)
    target_link_options(diskperf_testee PRIVATE -Wl,--export-all-symbols)
    set_target_properties(diskperf_testee PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${DKPF_TESTEE_DIR})
endif()

# dkpf_hooked_test(NAME LABEL SOURCES ... [LIBS ...]): a program with the doubles, beside the modules they go into.
function(dkpf_hooked_test name label)
    dkpf_test(${name} ${label} ${ARGN})
    target_link_libraries(${name} PRIVATE doubles)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${DKPF_TESTEE_DIR})
    add_dependencies(${name} empty_libraries)
endfunction()

# dkpf_testee_test(NAME unit|fault SOURCES ... [LIBS ...]): a program on the library under test with support/fixture.h.
function(dkpf_testee_test name label)
    dkpf_hooked_test(${name} ${label} ${ARGN})
    target_link_libraries(${name} PRIVATE diskperf_testee)
endfunction()
