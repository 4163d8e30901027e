# Checks on the build machine, with the system's own Python.
set(DKPF_PYTHON /usr/bin/python3)
dkpf_host_test(imports ${DKPF_PYTHON} ${CMAKE_SOURCE_DIR}/tests/host/check_imports.py ${DKPF_STAGE_DIR}
    ${CMAKE_SOURCE_DIR}/tests/host/allowed_imports.txt ${CMAKE_SOURCE_DIR}/platform/import)
dkpf_host_test(version ${DKPF_PYTHON} ${CMAKE_SOURCE_DIR}/tests/host/check_version.py ${CMAKE_SOURCE_DIR} ${DKPF_STAGE_DIR})
dkpf_host_test(settings ${DKPF_PYTHON} ${CMAKE_SOURCE_DIR}/tests/host/check_settings.py
    ${CMAKE_SOURCE_DIR}/platform/tnwxml/etc/policy/diskperf.xml ${CMAKE_SOURCE_DIR}/tools/shared/settings.cpp)
dkpf_host_test(name_table ${DKPF_PYTHON} -B ${CMAKE_SOURCE_DIR}/tests/host/name_table.py ${DKPF_STAGE_DIR}
    ${CMAKE_SOURCE_DIR}/platform/messages/tnwmsg.mc ${CMAKE_SOURCE_DIR}/platform/messages/counter_help.txt)
dkpf_host_test(bench_exits bash ${CMAKE_SOURCE_DIR}/tests/host/bench_exits.sh ${CMAKE_SOURCE_DIR})
