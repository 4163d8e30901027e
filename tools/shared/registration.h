/*
 * Names under which the system knows the product. Set-up writes them, the doctor and the readers look at them.
 */
#ifndef DKPF_TOOLS_REGISTRATION_H
#define DKPF_TOOLS_REGISTRATION_H

namespace dkpf {

/* ---- Below HKEY_LOCAL_MACHINE ---- */

/* The provider. The library reads "First Counter" and "First Help" here. */
inline constexpr wchar_t PROVIDER_KEY[] = L"SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf";
inline constexpr wchar_t PERFORMANCE_KEY[] = L"SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\Performance";
/* The debug switch lives here; the key has to be there, its value "dkpf_debug" not. */
inline constexpr wchar_t DEBUG_KEY[] = L"Software\\OSK\\TARNWELL\\work";
inline constexpr wchar_t DEBUG_VALUE[] = L"dkpf_debug";
inline constexpr wchar_t EVENT_SOURCE_KEY[] =
    L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\tnwdiskperf";
inline constexpr wchar_t ENVIRONMENT_KEY[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";

/* ---- Values of PERFORMANCE_KEY ---- */

inline constexpr wchar_t VALUE_LIBRARY[] = L"Library";  // whole path: a changed PATH reaches services after a restart
inline constexpr wchar_t VALUE_OPEN[] = L"Open";
inline constexpr wchar_t VALUE_COLLECT[] = L"Collect";
inline constexpr wchar_t VALUE_CLOSE[] = L"Close";
inline constexpr wchar_t VALUE_FIRST_COUNTER[] = L"First Counter";
inline constexpr wchar_t VALUE_LAST_COUNTER[] = L"Last Counter";
inline constexpr wchar_t VALUE_FIRST_HELP[] = L"First Help";
inline constexpr wchar_t VALUE_LAST_HELP[] = L"Last Help";
inline constexpr wchar_t VALUE_OBJECT_LIST[] = L"Object List";  // the system then calls us for our own object only
inline constexpr wchar_t VALUE_METADATA[] = L"Collect Supports Metadata";     // never ours: we answer no such queries
inline constexpr wchar_t VALUE_DISABLED[] = L"Disable Performance Counters";  // the system's own: 1 after a bad open

inline constexpr wchar_t EXPORT_OPEN[] = L"DkpfOpenForPerfmon";
inline constexpr wchar_t EXPORT_COLLECT[] = L"DkpfCollectForPerfmon";
inline constexpr wchar_t EXPORT_CLOSE[] = L"DkpfCloseForPerfmon";

/* ---- Files below HOME ---- */

inline constexpr wchar_t PRODUCT_DLL[] = L"tnwdiskperf.dll";          // in bin
inline constexpr wchar_t NAME_TABLE[] = L"tnwdiskperf.ini";           // in etc: names and help texts for the loader
inline constexpr wchar_t NAME_SYMBOLS[] = L"tnwdiskperf_counters.h";  // in etc: its symbols, offsets 0, 2, ... 34
/* What a replaced DLL that a host still holds is renamed to: NAME.old-1 and so on, deleted at the next chance. */
inline constexpr wchar_t HELD_SUFFIX[] = L".old-";

inline constexpr unsigned TITLE_NUM = 18;  // the object and 17 counters; title i is First Counter + 2 * i

}  // namespace dkpf

#endif
