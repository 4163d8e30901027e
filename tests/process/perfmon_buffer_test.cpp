/*
 * The shipped library called as the Performance Library calls it, with a live producer: buffers between pages that
 * fault, sizes at the limit, bytes that stay the caller's, and the row that this process has meanwhile.
 */
#include "process/provider_roles.h"
#include "support/guarded_buffer.h"

#include <winperf.h>
#include <string.h>

static const DWORD BLOCK = 15824;

/* The entry points of the home's library, loaded into this process and unloaded with the object. */
class LoadedProvider {
public:
    explicit LoadedProvider(const ProductHome& home)
    {
        const std::string path = home.PlainPath(L"bin\\tnwdiskperf.dll");
        library = LoadLibraryExA(path.c_str(), NULL, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (library == NULL) {
            throw std::runtime_error("the library does not load");
        }
        Bind("DkpfOpenForPerfmon", open);
        Bind("DkpfCollectForPerfmon", collect);
        Bind("DkpfCloseForPerfmon", close);
    }
    ~LoadedProvider()
    {
        FreeLibrary(library);
    }
    LoadedProvider(const LoadedProvider&) = delete;
    LoadedProvider& operator=(const LoadedProvider&) = delete;

    PM_OPEN_PROC*    open = nullptr;
    PM_COLLECT_PROC* collect = nullptr;
    PM_CLOSE_PROC*   close = nullptr;

private:
    template <class Routine> void Bind(const char* name, Routine& routine)
    {
        void* address = reinterpret_cast<void*>(GetProcAddress(library, name));
        memcpy(&routine, &address, sizeof(routine));
        if (address == nullptr) {
            throw std::runtime_error(name);
        }
    }

    HMODULE library = NULL;
};

class ProviderBuffers : public ProviderRoles {
protected:
    void SetUp() override
    {
        producer = StartCollecting();
        provider = std::make_unique<LoadedProvider>(home);
        ASSERT_EQ(0u, provider->open(nullptr));
    }
    void TearDown() override
    {
        if (provider != nullptr) {
            EXPECT_EQ(0u, provider->close());
            EXPECT_EQ(std::vector<DWORD>(), Owners());
        }
    }

    /* One collect into a buffer of that size; its query ends at a page that faults. */
    DWORD Collect(const std::wstring& query, const GuardedBuffer& buffer)
    {
        GuardedBuffer text((query.size() + 1) * sizeof(wchar_t));
        memcpy(text.Data(), query.c_str(), text.Size());
        data = buffer.Data();
        size = static_cast<DWORD>(buffer.Size());
        objects = 99;
        return provider->collect(reinterpret_cast<LPWSTR>(text.Data()), &data, &size, &objects);
    }
    void ExpectBlock(const GuardedBuffer& buffer) const
    {
        EXPECT_EQ(BLOCK, size);
        EXPECT_EQ(1u, objects);
        EXPECT_EQ(buffer.Data() + BLOCK, data);
    }
    /* No bytes, no objects, the pointer where it was, the buffer as it was. */
    void ExpectNothing(const GuardedBuffer& buffer) const
    {
        EXPECT_EQ(0u, size);
        EXPECT_EQ(0u, objects);
        EXPECT_EQ(buffer.Data(), data);
        EXPECT_TRUE(buffer.Bytes() == std::vector<BYTE>(buffer.Size(), GuardedBuffer::Fill));
    }

    static constexpr GuardedBuffer::Guard BOTH[] = { GuardedBuffer::Guard::Behind, GuardedBuffer::Guard::Before };

    std::unique_ptr<Program>        producer;
    std::unique_ptr<LoadedProvider> provider;
    LPVOID                          data = nullptr;
    DWORD                           size = 0, objects = 0;
};

TEST_F(ProviderBuffers, OneByteTooFewIsMoreDataWithZeroSizesAndJustEnoughIsEnough)
{
    for (const auto guard : BOTH) {
        const GuardedBuffer few(15823, guard), enough(15824, guard);
        EXPECT_EQ(234u, Collect(L"Global", few));
        ExpectNothing(few);
        EXPECT_EQ(0u, Collect(L"Global", enough));
        ExpectBlock(enough);
    }
}

// With all that the library can trace written by the real logging library.
TEST_F(ProviderBuffers, NothingBesideTheBufferIsTouchedWhateverIsAsked)
{
    home.Configure({ { "log/level", "65535" } });
    EXPECT_EQ(0u, provider->close());  // the level is read when the logs are opened
    EXPECT_EQ(0u, provider->open(nullptr));
    const std::wstring digits(65535, L'1');
    for (const std::wstring& query :
         { std::wstring(L"Global"), std::wstring(L"Global 2"), std::wstring(L"2000"), std::wstring(L"236 2000 238"),
           std::wstring(L"5\xD800 2000"), digits + L" 2000" }) {
        for (const auto guard : BOTH) {
            const GuardedBuffer buffer(BLOCK, guard);
            EXPECT_EQ(0u, Collect(query, buffer)) << query.size() << " characters";
            ExpectBlock(buffer);
        }
    }
    for (const std::wstring& query :
         { std::wstring(L""), std::wstring(L" "), std::wstring(L"2002"), std::wstring(L"20000"), std::wstring(L"2000,"),
           std::wstring(L"Foreign"), std::wstring(L"Costly"), std::wstring(L"Explain 009"), std::wstring(L"%s%n%S"),
           std::wstring(L"\xD800"), std::wstring(L"\xDC00\xD800"), std::wstring(L"Global\xDBFF"), digits,
           std::wstring(65536, L'0'), std::wstring(65536, L' '), std::wstring(65536, L'\xDFFF') }) {
        for (const auto guard : BOTH) {
            for (const size_t bytes : { size_t(BLOCK), size_t(1) }) {
                const GuardedBuffer buffer(bytes, guard);
                EXPECT_EQ(0u, Collect(query, buffer)) << query.size() << " characters";
                ExpectNothing(buffer);
            }
        }
    }
    EXPECT_NE(std::string::npos, home.Read(L"log\\diskperf_trace.log").find(" 0x0020 ")) << "no dumps were written";
}

TEST_F(ProviderBuffers, PaddingAndNameTailsStayTheCallersAndEveryLengthIsAMultipleOf8)
{
    for (const BYTE fill : { BYTE(0xA5), BYTE(0x5A) }) {
        const GuardedBuffer buffer(BLOCK);
        memset(buffer.Data(), fill, buffer.Size());
        ASSERT_EQ(0u, Collect(L"2000", buffer));
        const std::vector<BYTE> bytes = buffer.Bytes();
        const auto              number = [&bytes](size_t at) {
            DWORD value = 0;
            memcpy(&value, &bytes.at(at + 3) - 3, sizeof(value));
            return value;
        };
        const auto untouched = [&](size_t from, size_t to) {
            return std::vector<BYTE>(&bytes[from], &bytes[0] + to) == std::vector<BYTE>(to - from, fill);
        };
        EXPECT_EQ(BLOCK, number(0));
        EXPECT_EQ(744u, number(4));
        EXPECT_EQ(64u, number(8));
        EXPECT_EQ(0u, (number(0) | number(4) | number(8)) % 8);
        for (size_t j = 0; j < 17; j++) {
            EXPECT_EQ(0u, number(64 + 40 * j) % 8) << "counter " << j;
        }
        size_t at = 744;
        for (size_t i = 0; i < 65; i++) {
            // The name's bytes with its end, then to the 64th what was there before; so too behind the block's length.
            const std::wstring name = i == 0 ? L"_Total" : L"NMP" + std::to_wstring(i);
            const size_t       end = at + 24 + 2 * (name.size() + 1);
            EXPECT_EQ(0, memcmp(&bytes[at + 24], name.c_str(), end - at - 24)) << i;
            EXPECT_TRUE(untouched(end, at + 88)) << "tail of the name of instance " << i;
            EXPECT_TRUE(untouched(at + 92, at + 96)) << "padding of instance " << i;
            EXPECT_EQ(0u, number(at) % 8);
            EXPECT_EQ(0u, number(at + number(at)) % 8);
            at += number(at) + number(at + number(at));
        }
        EXPECT_EQ(BLOCK, at);
    }
}

TEST_F(ProviderBuffers, TwoOpensAndOneCloseStayAttached)
{
    const std::vector<DWORD> attached{ 0, GetCurrentProcessId() };
    const GuardedBuffer      buffer(BLOCK), untouched(BLOCK);
    EXPECT_EQ(attached, Owners());
    EXPECT_EQ(0u, provider->open(nullptr));
    EXPECT_EQ(attached, Owners());
    EXPECT_EQ(0u, provider->close());
    EXPECT_EQ(attached, Owners());
    EXPECT_EQ(0u, Collect(L"Global", buffer));
    ExpectBlock(buffer);
    EXPECT_EQ(0u, provider->close());
    EXPECT_EQ(std::vector<DWORD>(), Owners());
    EXPECT_EQ(0u, Collect(L"Global", untouched));
    ExpectNothing(untouched);
}
