# The configuration library, loaded from a home of its own in every test.
include(support/test_home.cmake)
dkpf_test_product(tnwxml)

dkpf_test(tnwxml_test unit
    SOURCES unit/tnwxml_sequence_test.cpp unit/tnwxml_value_test.cpp unit/tnwxml_file_test.cpp unit/tnwxml_policy_test.cpp
        unit/tnwxml_check_test.cpp unit/tnwxml_edit_test.cpp unit/tnwxml_hostile_test.cpp unit/tnwxml_fixture.cpp
    LIBS test_home)
target_compile_definitions(tnwxml_test PRIVATE XML_SOURCES="Z:${CMAKE_SOURCE_DIR}/platform/tnwxml/etc")
add_dependencies(tnwxml_test test_product_tnwxml)
