#include "pe_exports.h"

#include <windows.h>
#include <cstring>

namespace dkpf {

namespace {

/* A record at an offset of the file; false where it does not lie in it whole. */
template <class Record> bool Fetch(std::string_view file, size_t offset, Record* record)
{
    if (offset > file.size() || file.size() - offset < sizeof(Record))
        return false;
    std::memcpy(record, file.data() + offset, sizeof(Record));
    return true;
}

struct Image {
    std::string_view                  file;
    std::vector<IMAGE_SECTION_HEADER> sections;

    /* Offset in the file of what is mapped at an address. */
    bool OffsetOf(DWORD address, size_t* offset) const
    {
        for (const IMAGE_SECTION_HEADER& section : sections) {
            if (address >= section.VirtualAddress && address - section.VirtualAddress < section.SizeOfRawData) {
                *offset = static_cast<size_t>(section.PointerToRawData) + (address - section.VirtualAddress);
                return true;
            }
        }
        return false;
    }

    template <class Record> bool FetchAt(DWORD address, Record* record) const
    {
        size_t offset = 0;
        return OffsetOf(address, &offset) && Fetch(file, offset, record);
    }

    bool TextAt(DWORD address, std::string* text) const
    {
        size_t offset = 0;
        if (!OffsetOf(address, &offset) || offset >= file.size())
            return false;
        const size_t end = file.find('\0', offset);
        if (end == std::string_view::npos)
            return false;
        *text = file.substr(offset, end - offset);
        return true;
    }
};

}  // namespace

bool ReadExports(std::string_view file, std::vector<std::string>* names)
{
    static constexpr DWORD namesMax = 65536;  // ordinals have 16 bits
    names->clear();
    IMAGE_DOS_HEADER dos{};
    if (!Fetch(file, 0, &dos) || dos.e_magic != IMAGE_DOS_SIGNATURE || dos.e_lfanew < 0)
        return false;
    const size_t       start = static_cast<size_t>(dos.e_lfanew);
    IMAGE_NT_HEADERS64 nt{};
    if (!Fetch(file, start, &nt) || nt.Signature != IMAGE_NT_SIGNATURE ||
        nt.FileHeader.Machine != IMAGE_FILE_MACHINE_AMD64 || nt.OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC ||
        nt.OptionalHeader.NumberOfRvaAndSizes <= IMAGE_DIRECTORY_ENTRY_EXPORT)
        return false;

    Image        image{ file, std::vector<IMAGE_SECTION_HEADER>(nt.FileHeader.NumberOfSections) };
    const size_t table = start + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + nt.FileHeader.SizeOfOptionalHeader;
    for (size_t i = 0; i < image.sections.size(); i++) {
        if (!Fetch(file, table + i * sizeof(IMAGE_SECTION_HEADER), &image.sections[i]))
            return false;
    }

    const IMAGE_DATA_DIRECTORY& directory = nt.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    if (directory.VirtualAddress == 0)
        return true;
    IMAGE_EXPORT_DIRECTORY exports{};
    if (!image.FetchAt(directory.VirtualAddress, &exports) || exports.NumberOfNames > namesMax)
        return false;
    for (DWORD i = 0; i < exports.NumberOfNames; i++) {
        DWORD       address = 0;
        std::string name;
        if (!image.FetchAt(exports.AddressOfNames + i * 4, &address) || !image.TextAt(address, &name)) {
            names->clear();
            return false;
        }
        names->push_back(name);
    }
    return true;
}

}  // namespace dkpf
