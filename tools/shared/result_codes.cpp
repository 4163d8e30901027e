#include "result_codes.h"

#include <fmt/format.h>

#include "tnwdiskperf.h"

namespace dkpf {

namespace {

struct ResultWords {
    DWORD       code;
    const char* words;
};

const ResultWords g_words[] = {
    { DKPF_ERR_SUCCESS, "done" },
    { DKPF_ERR_ALREADY, "the library is brought up in this process already" },
    { DKPF_ERR_NOT_INITIALIZED, "the library is not brought up in this process" },
    { DKPF_ERR_TABLE_FULL, "32 readers are attached already: end one of them" },
    { DKPF_ERR_PARAMETER, "a parameter is wrong" },
    { DKPF_ERR_MUTEX_CREATE, "a mutex is missing or could not be created" },
    { DKPF_ERR_MUTEX_LOCK, "a mutex could not be locked" },
    { DKPF_ERR_EVENT, "an event could not be created" },
    { DKPF_ERR_THREAD, "a worker thread could not be started" },
    { DKPF_ERR_THREAD_EXIT, "the worker threads did not end within 300 s" },
    { DKPF_ERR_MEMORY, "memory could not be allocated" },
    { DKPF_ERR_XML_INIT, "the configuration library could not be initialised" },
    { DKPF_ERR_XML_LOAD, "policy, configuration or a value could not be loaded: run dkpfctl config check" },
    { DKPF_ERR_SYNC, "a synchronisation or handle call of the system failed" },
    { DKPF_ERR_NOT_AGENT, "only the disk agent may do this" },
    { DKPF_ERR_REG_OPEN, "a registry key could not be opened" },
    { DKPF_ERR_REG_READ, "a registry value could not be read" },
    { DKPF_ERR_DEVICE, "the driver's control device could not be opened: is the service velcor running?" },
    { DKPF_ERR_MIRROR_MODE, "a record of the driver names an unknown mirror mode" },
    { DKPF_ERR_REGION, "the region's mutex is missing or the region is not there" },
    { DKPF_ERR_MAPPING, "the region could not be created or opened" },
    { DKPF_ERR_MAPVIEW, "the region's view could not be mapped" },
    { DKPF_ERR_UNMAPVIEW, "the region's view could not be unmapped" },
    { DKPF_ERR_STRING_OPEN, "the message strings could not be opened: is tnwmsg.dll in bin?" },
    { DKPF_ERR_STRING_FORMAT, "a message string could not be read" },
    { DKPF_ERR_STRING_CLOSE, "the message strings could not be released" },
    { DKPF_ERR_COMPUTER_NAME, "the computer name could not be read" },
    { DKPF_ERR_CSV_OPEN, "a CSV file could not be opened" },
    { DKPF_ERR_CSV_ROTATE, "a CSV file could not be rotated" },
    { DKPF_ERR_CSV_WRITE, "a CSV line could not be written" },
    { DKPF_ERR_LOG, "the trace logs could not be opened or the configuration not read: run dkpfctl config check" },
    { DKPF_ERR_COUNTER_KIND, "a display counter is of unknown kind" },
};

}  // namespace

std::string ResultText(DWORD code)
{
    for (const ResultWords& entry : g_words) {
        if (entry.code == code)
            return fmt::format("{:#010x}: {}", code, entry.words);
    }
    return fmt::format("{:#010x}: not a code of this product", code);
}

}  // namespace dkpf
