# Homes for tests.
include_guard(GLOBAL)
add_library(test_home STATIC support/test_home.cpp)
target_include_directories(test_home PUBLIC ${CMAKE_SOURCE_DIR}/tests)
target_link_libraries(test_home PUBLIC import_hooks PRIVATE dkpf_warnings)

# dkpf_test_product(target): puts a built binary where TestHome::Install finds it. Never beside the test programs: there it
# would be loaded by its name.
function(dkpf_test_product target)
    if(TARGET test_product_${target})
        return()
    endif()
    set(copy ${CMAKE_BINARY_DIR}/tests/product/$<TARGET_FILE_NAME:${target}>)
    add_custom_target(test_product_${target} ALL
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/tests/product
        COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:${target}> ${copy}
        DEPENDS ${target} VERBATIM)
endfunction()
