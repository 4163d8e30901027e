/*
 * The export table of an image that is built here byte by byte, whole and damaged.
 */
#include <windows.h>
#include <gmock/gmock.h>
#include <cstring>
#include <string>

#include "pe_exports.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// One section of 512 bytes, at 0x400 in the file and at 0x1000 in memory. Its start is the export table.
constexpr size_t NT_AT = 0x80;
constexpr size_t SECTION_AT = NT_AT + sizeof(IMAGE_NT_HEADERS64);
constexpr size_t RAW_AT = 0x400;
constexpr DWORD  MAPPED_AT = 0x1000;

template <class Record> void Put(std::string* file, size_t at, const Record& record)
{
    std::memcpy(&(*file)[at], &record, sizeof(record));
}

std::string ImageWithTwoExports()
{
    std::string      file(RAW_AT + 512, '\0');
    IMAGE_DOS_HEADER dos{};
    dos.e_magic = IMAGE_DOS_SIGNATURE;
    dos.e_lfanew = NT_AT;
    Put(&file, 0, dos);

    IMAGE_NT_HEADERS64 nt{};
    nt.Signature = IMAGE_NT_SIGNATURE;
    nt.FileHeader.Machine = IMAGE_FILE_MACHINE_AMD64;
    nt.FileHeader.NumberOfSections = 1;
    nt.FileHeader.SizeOfOptionalHeader = sizeof(IMAGE_OPTIONAL_HEADER64);
    nt.OptionalHeader.Magic = IMAGE_NT_OPTIONAL_HDR64_MAGIC;
    nt.OptionalHeader.NumberOfRvaAndSizes = IMAGE_NUMBEROF_DIRECTORY_ENTRIES;
    nt.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT] = { MAPPED_AT, 40 };
    Put(&file, NT_AT, nt);

    IMAGE_SECTION_HEADER section{};
    section.VirtualAddress = MAPPED_AT;
    section.SizeOfRawData = 512;
    section.PointerToRawData = RAW_AT;
    Put(&file, SECTION_AT, section);

    IMAGE_EXPORT_DIRECTORY exports{};
    exports.NumberOfNames = 2;
    exports.AddressOfNames = MAPPED_AT + 0x40;
    Put(&file, RAW_AT, exports);
    Put(&file, RAW_AT + 0x40, DWORD{ MAPPED_AT + 0x80 });
    Put(&file, RAW_AT + 0x44, DWORD{ MAPPED_AT + 0x90 });
    std::memcpy(&file[RAW_AT + 0x80], "First", 6);
    std::memcpy(&file[RAW_AT + 0x90], "Second", 7);
    return file;
}

std::vector<std::string> names;

}  // namespace

TEST(PeExports, NamesComeInTheTablesOrder)
{
    EXPECT_TRUE(ReadExports(ImageWithTwoExports(), &names));
    EXPECT_THAT(names, ElementsAre("First", "Second"));
}

TEST(PeExports, AnImageWithoutATableHasNone)
{
    std::string file = ImageWithTwoExports();
    Put(&file, NT_AT + offsetof(IMAGE_NT_HEADERS64, OptionalHeader.DataDirectory), IMAGE_DATA_DIRECTORY{});
    names = { "left over" };
    EXPECT_TRUE(ReadExports(file, &names));
    EXPECT_THAT(names, IsEmpty());
}

// The last byte that counts is the NUL behind "Second".
TEST(PeExports, AFileThatIsCutOffAnywhereIsRefused)
{
    const std::string file = ImageWithTwoExports();
    const size_t      end = RAW_AT + 0x90 + 7;
    for (size_t length = 0; length < end; length++) {
        EXPECT_FALSE(ReadExports(std::string_view(file).substr(0, length), &names)) << length;
        EXPECT_THAT(names, IsEmpty());
    }
    EXPECT_TRUE(ReadExports(std::string_view(file).substr(0, end), &names));
}

TEST(PeExports, OtherKindsOfFilesAreRefused)
{
    struct Damage {
        const char* what;
        size_t      at;
        WORD        value;
    };
    for (const Damage& damage :
         { Damage{ "no program", 0, 0 }, Damage{ "no image", NT_AT, 0 },
           Damage{ "32 bits", NT_AT + offsetof(IMAGE_NT_HEADERS64, FileHeader.Machine), IMAGE_FILE_MACHINE_I386 },
           Damage{ "32-bit header", NT_AT + offsetof(IMAGE_NT_HEADERS64, OptionalHeader.Magic),
                   IMAGE_NT_OPTIONAL_HDR32_MAGIC } }) {
        std::string file = ImageWithTwoExports();
        Put(&file, damage.at, damage.value);
        EXPECT_FALSE(ReadExports(file, &names)) << damage.what;
    }
}

TEST(PeExports, AddressesOutsideOfEverySectionAreRefused)
{
    for (DWORD address : { 0u, 0xfffu, 0x1200u, 0xfffffffcu }) {
        std::string file = ImageWithTwoExports();
        Put(&file, RAW_AT + 0x44, address);  // of the second name
        EXPECT_FALSE(ReadExports(file, &names)) << address;
        file = ImageWithTwoExports();
        Put(&file, RAW_AT + offsetof(IMAGE_EXPORT_DIRECTORY, AddressOfNames), address);
        EXPECT_FALSE(ReadExports(file, &names)) << address;
    }
}

// The list of addresses is the last that stands in the file, behind the names that it leads to.
TEST(PeExports, AListThatIsCutOffIsRefusedThoughItsNamesAreThere)
{
    std::string  file = ImageWithTwoExports();
    const size_t list = 512 - 2 * sizeof(DWORD);
    Put(&file, RAW_AT + offsetof(IMAGE_EXPORT_DIRECTORY, AddressOfNames), static_cast<DWORD>(MAPPED_AT + list));
    Put(&file, RAW_AT + list, DWORD{ MAPPED_AT + 0x80 });
    Put(&file, RAW_AT + list + sizeof(DWORD), DWORD{ MAPPED_AT + 0x90 });
    EXPECT_TRUE(ReadExports(file, &names));
    for (size_t missing = 1; missing <= 2 * sizeof(DWORD); missing++)
        EXPECT_FALSE(ReadExports(std::string_view(file).substr(0, file.size() - missing), &names)) << missing;
}

// What stands in the file behind a section is not mapped with it.
TEST(PeExports, AnAddressBehindItsSectionIsRefusedThoughTheFileGoesOn)
{
    std::string file = ImageWithTwoExports() + std::string(64, 'x') + '\0';
    EXPECT_TRUE(ReadExports(file, &names));
    Put(&file, RAW_AT + 0x44, DWORD{ MAPPED_AT + 512 });
    EXPECT_FALSE(ReadExports(file, &names));
}

TEST(PeExports, MoreNamesThanOrdinalsAreRefused)
{
    std::string file = ImageWithTwoExports();
    Put(&file, RAW_AT + offsetof(IMAGE_EXPORT_DIRECTORY, NumberOfNames), DWORD{ 65537 });
    EXPECT_FALSE(ReadExports(file, &names));
}
