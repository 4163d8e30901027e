# The platform libraries' contracts: each case runs on the library and on its double.
include(support/machine.cmake)

dkpf_test(tnwlog_contract_test unit SOURCES contract/tnwlog_contract_test.cpp contract/tnwlog_sides.cpp
    LIBS test_home tnwlog_double)
dkpf_test(tnwxml_contract_test unit SOURCES contract/tnwxml_contract_test.cpp contract/tnwxml_sides.cpp
    LIBS test_home tnwxml_double)
target_compile_definitions(tnwxml_contract_test PRIVATE XML_SOURCES="Z:${CMAKE_SOURCE_DIR}/platform/tnwxml/etc")
# With the real driver, a service of the prefix.
dkpf_hooked_test(device_contract_test process
    SOURCES contract/tnwdiskfltr_contract_test.cpp contract/velcor_contract_test.cpp contract/device_sides.cpp
    LIBS test_machine probe)
foreach(library tnwlog tnwmsg tnwxml)
    add_dependencies(tnwlog_contract_test test_product_${library})
    add_dependencies(tnwxml_contract_test test_product_${library})
endforeach()
