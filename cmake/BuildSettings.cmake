# What every binary of the product is built with.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_SHARED_LIBRARY_PREFIX "")
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# 0x0A00 with the build of Windows Server 2016: nothing younger may be called.
add_compile_definitions(WINVER=0x0A00 _WIN32_WINNT=0x0A00 NTDDI_VERSION=0x0A000002 WIN32_LEAN_AND_MEAN NOMINMAX)

# DWARF 4: debuggers of the platform read no newer line tables from a DLL.
add_compile_options(-gdwarf-4 -fno-omit-frame-pointer -ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
# No time stamp: two builds of one source give the same bytes. -static: no run-time DLL of the compiler is needed.
add_link_options(-static -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va -Wl,--no-insert-timestamp)

set(DKPF_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wundef -Werror)
set(DKPF_CXX_WARNINGS ${DKPF_WARNINGS} -Wold-style-cast -Wuseless-cast)

# Own code: dkpf_warnings (tools, agent, tests); dkpf_strict adds what keeps the sources fit for other compilers.
add_library(dkpf_warnings INTERFACE)
target_compile_options(dkpf_warnings INTERFACE
    "$<$<COMPILE_LANGUAGE:CXX>:${DKPF_CXX_WARNINGS}>" "$<$<COMPILE_LANGUAGE:C>:${DKPF_WARNINGS}>")
add_library(dkpf_strict INTERFACE)
target_link_libraries(dkpf_strict INTERFACE dkpf_warnings)
target_compile_options(dkpf_strict INTERFACE "$<$<COMPILE_LANGUAGE:C,CXX>:-pedantic-errors>")
