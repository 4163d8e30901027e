# Header-only libraries of the host distribution that the cross build uses. The host's include folder must never
# stand on the cross include path, so each library's one folder is linked into the build tree. Never in diskperf/.

function(dkpf_header_library target folder)
    set(root ${CMAKE_BINARY_DIR}/headers/${target})
    if(NOT EXISTS /usr/include/${folder})
        message(FATAL_ERROR "/usr/include/${folder} is missing: run ./test or ./run once, they install what the build needs.")
    endif()
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK /usr/include/${folder} ${root}/${folder} SYMBOLIC)
    add_library(${target} INTERFACE)
    target_include_directories(${target} SYSTEM INTERFACE ${root})
endfunction()

dkpf_header_library(lib_rapidxml rapidxml)
dkpf_header_library(lib_cli11 CLI)
dkpf_header_library(lib_json nlohmann)

# Compiled once; header by header it would take most of the build of the programs.
dkpf_header_library(fmt_headers fmt)
add_library(lib_fmt STATIC ${CMAKE_CURRENT_LIST_DIR}/lib_fmt.cpp)
target_link_libraries(lib_fmt PUBLIC fmt_headers)
