#include "support/import_watch.h"

#include <string.h>

#include <stdexcept>

static const size_t STUB_SIZE = 128;
static const size_t STUBS_MAX = 256;

static DWORD s_error;

static INT_PTR FailZero()
{
    SetLastError(s_error);
    return 0;
}

static INT_PTR FailMinusOne()
{
    SetLastError(s_error);
    return -1;
}

/* The routine that fails in the place of another one. NULL: none is known. */
static INT_PTR (*FailureOf(const std::string& name))()
{
    static const char* const zero[] = { "GetFileInformationByHandleEx",
                                        "SetFileInformationByHandle",
                                        "SetFilePointerEx",
                                        "ReadFile",
                                        "WriteFile",
                                        "MoveFileExW",
                                        "DeleteFileW",
                                        "FindNextFileW",
                                        "HeapAlloc" };
    static const char* const minusOne[] = { "CreateFileW", "ReOpenFile", "FindFirstFileW", "GetFileAttributesW",
                                            "WaitForSingleObject" };

    for (const char* known : zero) {
        if (name == known) {
            return FailZero;
        }
    }
    for (const char* known : minusOne) {
        if (name == known) {
            return FailMinusOne;
        }
    }
    return nullptr;
}

bool ImportWatch::CanFail(const Call& call)
{
    return FailureOf(call.name) != nullptr;
}

ImportWatch::ImportWatch(HMODULE module, Before before)
    : m_before(std::move(before)),
      m_code(static_cast<BYTE*>(
          VirtualAlloc(nullptr, STUB_SIZE * STUBS_MAX, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE))),
      m_hooks(module)
{
    if (m_code == nullptr) {
        throw std::runtime_error("no memory for stubs");
    }
    m_hooks.ReplaceEach([this](const std::string& dll, const std::string& name, void* original) {
        m_entries.push_back(std::make_unique<Entry>(Entry{ this, { dll, name }, original }));
        return MakeStub(m_entries.back().get());
    });
}

ImportWatch::~ImportWatch()
{
    m_hooks.RestoreAll();
    VirtualFree(m_code, 0, MEM_RELEASE);
}

size_t ImportWatch::Number() const
{
    return m_entries.size();
}

/* Where the call goes. Arguments are still as the module passed them, so both the routine and its failure can take it
 * over. */
void* ImportWatch::Arrive(Entry* entry)
{
    const DWORD error = GetLastError(); /* the module may ask for that of an earlier call */
    const bool  fails = entry->watch->m_before(entry->call);

    SetLastError(error);
    s_error = entry->watch->Error;
    return fails ? Address(FailureOf(entry->call.name)) : entry->original;
}

void* ImportWatch::MakeStub(Entry* entry)
{
    /* Keeps the four register arguments of either kind over the call of Arrive(entry), then jumps to where that says.
     */
    static const BYTE code[] = {
        0x51, 0x52, 0x41, 0x50, 0x41, 0x51,             /* push rcx, rdx, r8, r9 */
        0x48, 0x83, 0xEC, 0x68,                         /* sub rsp, 68h: room for the callee, and 16-byte alignment */
        0x48, 0xB9, 0,    0,    0,    0,    0, 0, 0, 0, /* mov rcx, entry */
        0x48, 0xB8, 0,    0,    0,    0,    0, 0, 0, 0, /* mov rax, Arrive */
        0x0F, 0x29, 0x44, 0x24, 0x20,                   /* movaps [rsp+20h], xmm0 */
        0x0F, 0x29, 0x4C, 0x24, 0x30,                   /* movaps [rsp+30h], xmm1 */
        0x0F, 0x29, 0x54, 0x24, 0x40,                   /* movaps [rsp+40h], xmm2 */
        0x0F, 0x29, 0x5C, 0x24, 0x50,                   /* movaps [rsp+50h], xmm3 */
        0xFF, 0xD0,                                     /* call rax */
        0x0F, 0x28, 0x44, 0x24, 0x20,                   /* movaps xmm0, [rsp+20h] */
        0x0F, 0x28, 0x4C, 0x24, 0x30,                   /* movaps xmm1, [rsp+30h] */
        0x0F, 0x28, 0x54, 0x24, 0x40,                   /* movaps xmm2, [rsp+40h] */
        0x0F, 0x28, 0x5C, 0x24, 0x50,                   /* movaps xmm3, [rsp+50h] */
        0x48, 0x83, 0xC4, 0x68,                         /* add rsp, 68h */
        0x41, 0x59, 0x41, 0x58, 0x5A, 0x59,             /* pop r9, r8, rdx, rcx */
        0xFF, 0xE0,                                     /* jmp rax */
    };
    static_assert(sizeof code <= STUB_SIZE, "a stub has no room");
    BYTE* stub = m_code + (m_entries.size() - 1) * STUB_SIZE;
    void* arrive = Address(Arrive);

    if (m_entries.size() > STUBS_MAX) {
        throw std::runtime_error("more imports than stubs");
    }
    memcpy(stub, code, sizeof code);
    memcpy(stub + 12, &entry, sizeof entry);
    memcpy(stub + 22, &arrive, sizeof arrive);
    return stub;
}
