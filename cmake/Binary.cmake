# What every shipped binary gets: its version resource, and its stripped copy in the stage.

# build/stage holds exactly what an installation holds; it lies beside the build tree of the preset.
set(DKPF_STAGE_DIR ${CMAKE_BINARY_DIR}/../stage CACHE PATH "Image of an installation, refreshed by every build")
get_filename_component(DKPF_STAGE_DIR ${DKPF_STAGE_DIR} ABSOLUTE)
add_custom_target(stage)  # all that lies there, and no test

# dkpf_version(target "What it is"): version resource from project(VERSION), which the module banner prints.
function(dkpf_version target description)
    set(RC_DESCRIPTION ${description})
    set(RC_NAME "${target}.dll")
    set(RC_FILETYPE VFT_DLL)
    set(RC_FILESUBTYPE VFT2_UNKNOWN)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
        set(RC_NAME "${target}.exe")
        set(RC_FILETYPE VFT_APP)
    endif()
    if("${ARGN}" STREQUAL "DRIVER")
        set(RC_NAME "${target}.sys")
        set(RC_FILETYPE VFT_DRV)
        set(RC_FILESUBTYPE VFT2_DRV_SYSTEM)
    endif()
    set(rc ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
    configure_file(${CMAKE_SOURCE_DIR}/cmake/version.rc.in ${rc} @ONLY)
    target_sources(${target} PRIVATE ${rc})
endfunction()

# dkpf_stage(target bin): a stripped copy of the binary in the stage after each link.
function(dkpf_stage target folder)
    # Sections that begin on a page of the file too can be mapped by every loader. With the tool chain's 512 bytes Wine reads
    # each image into private memory of every process: 1.5 MB of the agent's.
    target_link_options(${target} PRIVATE -Wl,--file-alignment,4096)
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E make_directory ${DKPF_STAGE_DIR}/${folder}
        COMMAND ${CMAKE_STRIP} --strip-unneeded -o ${DKPF_STAGE_DIR}/${folder}/$<TARGET_FILE_NAME:${target}> $<TARGET_FILE:${target}>
        VERBATIM)
    add_dependencies(stage ${target})
endfunction()

# dkpf_stage_file(name file folder): a file that is not built, copied into the stage when it changes.
function(dkpf_stage_file name file folder)
    get_filename_component(leaf ${file} NAME)
    set(out ${DKPF_STAGE_DIR}/${folder}/${leaf})
    add_custom_command(OUTPUT ${out}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${DKPF_STAGE_DIR}/${folder}
        COMMAND ${CMAKE_COMMAND} -E copy ${file} ${out} DEPENDS ${file} VERBATIM)
    add_custom_target(${name} ALL DEPENDS ${out})
    add_dependencies(stage ${name})
endfunction()
