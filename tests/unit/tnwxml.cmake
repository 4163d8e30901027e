dkpf_test(tnwxml_test unit
    SOURCES unit/tnwxml_sequence_test.cpp unit/tnwxml_value_test.cpp unit/tnwxml_file_test.cpp unit/tnwxml_policy_test.cpp
        unit/tnwxml_check_test.cpp unit/tnwxml_fixture.cpp support/stage_home.cpp
    LIBS import_hooks)
add_dependencies(tnwxml_test tnwxml tnwxml_cluster tnwxml_policy)
