# Import libraries that bind by ordinal alone, made from platform/import/NAME.def.
# dkpf_ordinal_import(tnwlog) defines the target tnwlog_import.

find_program(DKPF_DLLTOOL x86_64-w64-mingw32-dlltool REQUIRED)

function(dkpf_ordinal_import name)
    set(def ${CMAKE_SOURCE_DIR}/platform/import/${name}.def)
    set(lib ${CMAKE_BINARY_DIR}/import/lib${name}_ordinals.a)
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/import)
    add_custom_command(OUTPUT ${lib}
        COMMAND ${DKPF_DLLTOOL} -m i386:x86-64 -d ${def} -l ${lib}
        DEPENDS ${def} COMMENT "Import library of ${name}.dll (ordinals)" VERBATIM)
    add_custom_target(${name}_import_lib DEPENDS ${lib})
    add_library(${name}_import INTERFACE)
    add_dependencies(${name}_import ${name}_import_lib)
    target_include_directories(${name}_import INTERFACE ${CMAKE_SOURCE_DIR}/platform/include)
    target_link_libraries(${name}_import INTERFACE ${lib})
    set_property(TARGET ${name}_import PROPERTY INTERFACE_LINK_DEPENDS ${lib})
endfunction()
