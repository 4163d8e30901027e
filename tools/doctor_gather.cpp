/*
 * Asking the machine, one routine for each part of the facts.
 */
#include "doctor_facts.h"

#include <winver.h>
#include <winsvc.h>
#include <tlhelp32.h>
#include <psapi.h>
#include <fmt/format.h>
#include <algorithm>
#include <cstring>

#include "diskperf.h"
#include "file_io.h"
#include "home.h"
#include "names.h"
#include "perf_names.h"
#include "pe_exports.h"
#include "product_files.h"
#include "registration.h"
#include "registry_key.h"
#include "search_path.h"
#include "system_info.h"
#include "text.h"

namespace dkpf {

static std::wstring Leaf(const std::wstring& path)
{
    const size_t cut = path.find_last_of(L"\\/");
    return cut == std::wstring::npos ? path : path.substr(cut + 1);
}

/* ---- Machine ---- */

static ULONGLONG MappedRegionBytes()
{
    ULONGLONG    bytes = 0;
    const HANDLE mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, DKPF_SHM_NAME);
    if (mapping == nullptr)
        return 0;
    const void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    if (view != nullptr) {
        MEMORY_BASIC_INFORMATION info{};
        if (VirtualQuery(view, &info, sizeof(info)) != 0)
            bytes = info.RegionSize;
        UnmapViewOfFile(view);
    }
    CloseHandle(mapping);
    return bytes;
}

/* ---- Registry ---- */

/* nullopt: it is not there, or of another type. */
static std::optional<std::string> TextOf(const RegistryKey& key, const wchar_t* name)
{
    std::wstring text;
    return key.Text(name, &text) == ERROR_SUCCESS ? std::optional<std::string>(Narrow(text)) : std::nullopt;
}

static std::optional<DWORD> NumberOf(const RegistryKey& key, const wchar_t* name)
{
    DWORD number = 0;
    return key.Number(name, &number) == ERROR_SUCCESS ? std::optional<DWORD>(number) : std::nullopt;
}

static std::wstring ProductDll(const Home& home)
{
    return home.Bin() + L"\\" + PRODUCT_DLL;
}

static RegistrationFacts LookAtRegistration(const Home& home)
{
    static constexpr size_t bound = 64 * 1024 * 1024;
    const RegistryKey       key(PERFORMANCE_KEY);
    RegistrationFacts       facts;
    facts.error = key.Error();
    facts.library = TextOf(key, VALUE_LIBRARY);
    facts.open = TextOf(key, VALUE_OPEN);
    facts.collect = TextOf(key, VALUE_COLLECT);
    facts.close = TextOf(key, VALUE_CLOSE);
    facts.objectList = TextOf(key, VALUE_OBJECT_LIST);
    facts.firstCounter = NumberOf(key, VALUE_FIRST_COUNTER);
    facts.lastCounter = NumberOf(key, VALUE_LAST_COUNTER);
    facts.firstHelp = NumberOf(key, VALUE_FIRST_HELP);
    facts.lastHelp = NumberOf(key, VALUE_LAST_HELP);
    facts.disabled = NumberOf(key, VALUE_DISABLED);
    facts.metadata = NumberOf(key, VALUE_METADATA);
    if (facts.library) {
        std::wstring path;
        std::string  file;
        key.ExpandedText(VALUE_LIBRARY, &path);
        facts.libraryError = ReadWholeFile(path, bound, &file);
        facts.libraryReadable = facts.libraryError == ERROR_SUCCESS && ReadExports(file, &facts.exports);
        facts.libraryOurs = SameFile(path, ProductDll(home));
    }
    return facts;
}

/* The system's names are read below Perflib: a query of the performance data would call every provider. */
static NameFacts LookAtNames(const Home& home, const std::optional<DWORD>& firstCounter)
{
    static constexpr wchar_t systemTable[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Perflib\\009";
    static constexpr size_t  bound = 1024 * 1024;
    const std::wstring       path = home.Etc() + L"\\" + NAME_TABLE;
    NameFacts                facts;
    facts.tablePath = Narrow(path);
    std::string content;
    std::string symbols;
    facts.tableRead = ReadWholeFile(path, bound, &content) == ERROR_SUCCESS &&
                      ReadWholeFile(home.Etc() + L"\\" + NAME_SYMBOLS, bound, &symbols) == ERROR_SUCCESS;
    for (const auto& [offset, name] : ParseInstalledTexts(content, symbols).names)
        facts.table.push_back(name);
    DWORD             type = REG_NONE;
    std::vector<BYTE> table;
    if (firstCounter && RegistryKey(systemTable).Read(L"Counter", &type, &table) == ERROR_SUCCESS) {
        const PerfTexts texts = ParsePerfTexts(table);
        for (DWORD i = 0; i < TITLE_NUM; i++) {
            const auto text = texts.find(*firstCounter + 2 * i);
            facts.system.push_back(text == texts.end() ? std::string() : text->second);
        }
    }
    return facts;
}

/* Asked for as the library does, of any type: a text is one of bytes then. */
static DebugFacts LookAtDebugSwitch()
{
    const RegistryKey key(DEBUG_KEY);
    DebugFacts        facts;
    DWORD             value = 0;
    DWORD             size = sizeof(value);
    facts.keyError = key.Error();
    if (facts.keyError == ERROR_SUCCESS && RegQueryValueExA(key.Handle(), Narrow(DEBUG_VALUE).c_str(), nullptr, nullptr,
                                                            reinterpret_cast<BYTE*>(&value), &size) == ERROR_SUCCESS)
        facts.value = value;
    return facts;
}

static EventSourceFacts LookAtEventSource()
{
    const RegistryKey key(EVENT_SOURCE_KEY);
    EventSourceFacts  facts;
    facts.keyError = key.Error();
    std::wstring files;
    key.ExpandedText(L"EventMessageFile", &files);
    for (size_t at = 0; at < files.size();) {
        const size_t       end = std::min(files.find(L';', at), files.size());
        const std::wstring file = files.substr(at, end - at);
        if (!file.empty()) {
            facts.messageFiles.push_back(Narrow(file));
            if (GetFileAttributesW(file.c_str()) == INVALID_FILE_ATTRIBUTES)
                facts.messageFilesMissing.push_back(Narrow(file));
        }
        at = end + 1;
    }
    return facts;
}

/* The value, not this process's environment: a host that a service starts has no other. */
static SearchPathFact LookAtSearchPath(const Home& home)
{
    std::wstring path;
    const DWORD  error = RegistryKey(ENVIRONMENT_KEY).ExpandedText(L"Path", &path);
    return { error, HoldsFolder(path, home.Bin()) };
}

/* ---- Processes ---- */

static bool IsLibraryName(const std::wstring& leaf)
{
    const size_t length = std::size(PRODUCT_DLL) - 1;
    return _wcsnicmp(leaf.c_str(), PRODUCT_DLL, length) == 0 &&
           (leaf.size() == length || leaf.compare(length, std::size(HELD_SUFFIX) - 1, HELD_SUFFIX) == 0);
}

/* The file's name as it is now: the module list has the one under which it was loaded. Empty where it is not known. */
static std::wstring MappedLeaf(DWORD pid, void* base)
{
    const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid);
    if (process == nullptr)
        return std::wstring();
    std::wstring path(1024, L'\0');
    path.resize(K32GetMappedFileNameW(process, base, path.data(), static_cast<DWORD>(path.size())));
    CloseHandle(process);
    return Leaf(path);
}

static LoadedLibrary LookAtLibrary(const Home& home, DWORD pid, const MODULEENTRY32W& module)
{
    std::wstring       path = module.szExePath;
    const std::wstring leaf = MappedLeaf(pid, module.modBaseAddr);
    if (IsLibraryName(leaf))
        path = path.substr(0, path.size() - Leaf(path).size()) + leaf;
    return { Narrow(path), SameFile(path, ProductDll(home)) };
}

static void LookAtModules(const Home& home, ProcessFact* fact)
{
    static constexpr int tries = 5;  // the list changes while it is read
    HANDLE               modules = INVALID_HANDLE_VALUE;
    for (int i = 0; i < tries && modules == INVALID_HANDLE_VALUE; i++) {
        modules = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, fact->pid);
        if (modules == INVALID_HANDLE_VALUE && GetLastError() != ERROR_BAD_LENGTH)
            break;
    }
    if (modules == INVALID_HANDLE_VALUE) {
        fact->refused = GetLastError() == ERROR_ACCESS_DENIED;  // any other: it has just ended
        return;
    }
    MODULEENTRY32W module{};
    module.dwSize = sizeof(module);
    for (BOOL more = Module32FirstW(modules, &module); more; more = Module32NextW(modules, &module)) {
        if (_wcsicmp(module.szModule, L"pdh.dll") == 0)
            fact->readsPerformanceData = true;
        if (IsLibraryName(module.szModule))
            fact->libraries.push_back(LookAtLibrary(home, fact->pid, module));
    }
    CloseHandle(modules);
}

static std::vector<ProcessFact> LookAtProcesses(const Home& home)
{
    std::vector<ProcessFact> facts;
    const HANDLE             processes = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (processes == INVALID_HANDLE_VALUE)
        return facts;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(processes, &entry); more; more = Process32NextW(processes, &entry)) {
        static constexpr DWORD systemProcess = 4;  // it and the idle process, 0, load nothing
        if (entry.th32ProcessID == 0 || entry.th32ProcessID == systemProcess)
            continue;
        ProcessFact fact;
        fact.pid = entry.th32ProcessID;
        fact.program = Narrow(entry.szExeFile);
        const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, fact.pid);
        if (process != nullptr) {
            BOOL wow64 = FALSE;
            fact.is32Bit = IsWow64Process(process, &wow64) && wow64;
            fact.started = ProcessStart(process);
            CloseHandle(process);
        }
        LookAtModules(home, &fact);
        facts.push_back(std::move(fact));
    }
    CloseHandle(processes);
    return facts;
}

/* ---- Files ---- */

struct FileEntry {
    std::wstring name;
    ULONGLONG    bytes;
};

static std::vector<FileEntry> FilesIn(const std::wstring& folder, const wchar_t* pattern)
{
    std::vector<FileEntry> files;
    WIN32_FIND_DATAW       found{};
    const HANDLE           search = FindFirstFileW((folder + L"\\" + pattern).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return files;
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            files.push_back(
                { found.cFileName, (static_cast<ULONGLONG>(found.nFileSizeHigh) << 32) | found.nFileSizeLow });
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return files;
}

/* A loaded image cannot be opened for writing; nor can any file without rights, which says nothing about holders. */
static AsideState WhoHolds(const std::wstring& path)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION ? AsideState::Held : AsideState::NotAsked;
    CloseHandle(file);
    return AsideState::Left;
}

static std::vector<AsideFact> LookAtAside(const Home& home)
{
    std::vector<AsideFact> facts;
    for (const FileEntry& file : FilesIn(home.Bin(), (L"*" + std::wstring(HELD_SUFFIX) + L"*").c_str())) {
        const std::wstring path = home.Bin() + L"\\" + file.name;
        facts.push_back({ Narrow(path), WhoHolds(path) });
    }
    return facts;
}

static FolderFact TryFolder(const std::wstring& folder)
{
    FolderFact         fact{ Narrow(folder), ERROR_SUCCESS };
    const std::wstring name = folder + L"\\dkpfctl_" + std::to_wstring(GetCurrentProcessId()) + L".tmp";
    const HANDLE       file = CreateFileW(name.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                                          FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        fact.error = GetLastError();
    else
        CloseHandle(file);
    return fact;
}

static void LookAtSpace(const Home& home, DoctorFacts* facts)
{
    ULARGE_INTEGER available{};
    if (GetDiskFreeSpaceExW(home.Perf().c_str(), &available, nullptr, nullptr))
        facts->freeBytes = available.QuadPart;
    else
        facts->spaceError = GetLastError();
    const auto add = [facts](const std::wstring& folder, bool (*isOurs)(const std::wstring&)) {
        for (const FileEntry& file : FilesIn(folder, L"*"))
            facts->usedBytes += isOurs(file.name) ? file.bytes : 0;
    };
    add(home.Perf(), IsCsvFile);
    add(home.Log(), IsTraceLog);
}

static std::string VersionOf(const std::wstring& path)
{
    const DWORD       size = GetFileVersionInfoSizeW(path.c_str(), nullptr);
    std::vector<BYTE> data(size);
    VS_FIXEDFILEINFO* info = nullptr;
    UINT              length = 0;
    if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, data.data()) ||
        !VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&info), &length) || length < sizeof(*info))
        return std::string();
    return fmt::format("{}.{}.{}.{}", HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                       HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS));
}

static bool IsFile(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

static bool IsThere(const Home& home, const ProductFile& file)
{
    return IsFile(home.root + L"\\" + file.path);
}

/* Whether set-up can run from here. Where it left a real driver alone there is no file of the simulated one. */
static bool IsWhole(const Home& home, const StatusFacts& status)
{
    return std::all_of(std::begin(PRODUCT_FILES), std::end(PRODUCT_FILES), [&](const ProductFile& file) {
        return (file.rule == FileRule::Driver && !status.feeder.info.installed) || IsThere(home, file);
    });
}

/* Whoever has a feeder has the simulated driver, out of this installation. */
static std::vector<BinaryFact> LookAtBinaries(const Home& home, const StatusFacts& status)
{
    std::vector<BinaryFact> facts;
    for (const wchar_t* pattern : { L"*.dll", L"*.exe" }) {
        for (const FileEntry& file : FilesIn(home.Bin(), pattern))
            facts.push_back(
                { Narrow(BIN_FOLDER + (L"\\" + file.name)), true, VersionOf(home.Bin() + L"\\" + file.name) });
    }
    for (const ProductFile& file : PRODUCT_FILES) {
        const std::wstring path = file.path;
        const bool         there = IsThere(home, file);
        if (path == BIN_FOLDER + (L"\\" + Leaf(path)) && !there)
            facts.push_back({ Narrow(path), false, "" });
        else if (file.rule == FileRule::Driver && status.feeder.info.installed)
            facts.push_back({ Narrow(path), there, VersionOf(home.root + L"\\" + path) });
    }
    if (status.feeder.info.installed) {
        const std::wstring path = DriverFolderOfSystem() + L"\\" + DRIVER_NAME;  // the copy that runs
        facts.push_back({ Narrow(path), IsFile(path), VersionOf(path), true });
    }
    std::sort(facts.begin(), facts.end(), [](const BinaryFact& a, const BinaryFact& b) { return a.file < b.file; });
    return facts;
}

/* ---- All of it ---- */

DoctorFacts GatherDoctor()
{
    const Home  home = HomeOfThisProgram();
    SYSTEMTIME  now{};
    DoctorFacts facts;
    GetLocalTime(&now);
    facts.computer = ComputerName();
    facts.utcOffsetMinutes = LocalUtcOffsetMinutes();
    facts.time = IsoTime(now, facts.utcOffsetMinutes);
    facts.administrator = IsAdministrator();
    facts.wine = IsWine();
    facts.status = GatherStatus();
    facts.regionBytes = MappedRegionBytes();
    facts.registration = LookAtRegistration(home);
    facts.names = LookAtNames(home, facts.registration.firstCounter);
    facts.debug = LookAtDebugSwitch();
    facts.eventSource = LookAtEventSource();
    facts.searchPath = LookAtSearchPath(home);
    facts.processes = LookAtProcesses(home);
    facts.aside = LookAtAside(home);
    facts.log = TryFolder(home.Log());
    facts.perf = TryFolder(home.Perf());
    LookAtSpace(home, &facts);
    facts.whole = IsWhole(home, facts.status);
    facts.binaries = LookAtBinaries(home, facts.status);
    facts.version = VersionOf(home.Bin() + L"\\dkpfctl.exe");
    return facts;
}

}  // namespace dkpf
