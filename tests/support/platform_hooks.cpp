#include "support/platform_hooks.h"

#include "tnwdiskfltr.h"
#include "tnwlog.h"
#include "tnwxml.h"

/* The product's contract with its libraries, written down a second time: a wrong ordinal in an import library leaves a
 * slot unreplaced, and the first call through it ends the test program. */
unsigned InstallPlatformDoubles(ImportHooks& hooks)
{
    struct {
        const char* dll;
        WORD        ordinal;
        void*       routine;
    } const slots[] = {
        { "tnwlog.dll", 1, Address(log_init) },
        { "tnwlog.dll", 2, Address(log_term) },
        { "tnwlog.dll", 3, Address(log_write) },
        { "tnwlog.dll", 6, Address(TnwLoadStringTable) },
        { "tnwlog.dll", 7, Address(TnwFreeStringTable) },
        { "tnwlog.dll", 9, Address(TnwFormatMessage) },
        { "tnwlog.dll", 19, Address(log_util_init) },
        { "tnwlog.dll", 20, Address(log_util_term) },
        { "tnwlog.dll", 21, Address(log_util_write) },
        { "tnwlog.dll", 22, Address(log_util_rotate) },
        { "tnwxml.dll", 1, Address(xmllib_init) },
        { "tnwxml.dll", 2, Address(xmllib_term) },
        { "tnwxml.dll", 4, Address(xmllib_load_policy) },
        { "tnwxml.dll", 5, Address(xmllib_unload_policy) },
        { "tnwxml.dll", 6, Address(xmllib_load_config) },
        { "tnwxml.dll", 7, Address(xmllib_unload_config) },
        { "tnwxml.dll", 13, Address(xmllib_get_value) },
        { "tnwdiskfltr.dll", 5, Address(TnwDkfltrGetMirrorPerformance) },
    };
    unsigned replaced = 0;
    for (const auto& slot : slots) {
        replaced += hooks.Replace(slot.dll, slot.ordinal, slot.routine) ? 1u : 0u;
    }
    return replaced;
}
