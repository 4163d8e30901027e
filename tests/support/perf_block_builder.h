/*
 * Blocks of performance data, put together field by field as a provider and the system do it.
 */
#ifndef TESTS_SUPPORT_PERF_BLOCK_BUILDER_H
#define TESTS_SUPPORT_PERF_BLOCK_BUILDER_H

#include <windows.h>
#include <winperf.h>
#include <string.h>
#include <string>
#include <vector>

namespace perf_block_builder {

using Bytes = std::vector<BYTE>;

struct Counter {
    DWORD name = 0;
    DWORD help = 0;
    LONG  scale = 0;
    DWORD type = PERF_COUNTER_LARGE_RAWCOUNT;
    DWORD size = 8;
};

struct Instance {
    std::wstring           name;
    std::vector<ULONGLONG> values;
};

template <class Record> void Append(Bytes* bytes, const Record& record)
{
    const BYTE* from = reinterpret_cast<const BYTE*>(&record);
    bytes->insert(bytes->end(), from, from + sizeof(record));
}

inline void AppendValues(Bytes* bytes, const std::vector<Counter>& counters, const std::vector<ULONGLONG>& values)
{
    PERF_COUNTER_BLOCK block{};
    Bytes              numbers;
    for (size_t i = 0; i < counters.size(); i++) {
        const BYTE* from = reinterpret_cast<const BYTE*>(&values[i]);
        numbers.insert(numbers.end(), from, from + counters[i].size);
    }
    block.ByteLength = static_cast<DWORD>(8 + (numbers.size() + 7) / 8 * 8);
    Append(bytes, block);
    Append(bytes, DWORD{ 0 });
    numbers.resize(block.ByteLength - 8);
    bytes->insert(bytes->end(), numbers.begin(), numbers.end());
}

/* instances nullptr: an object without instances, whose values are bare. */
inline Bytes Object(DWORD name, DWORD help, const std::vector<Counter>& counters,
                    const std::vector<Instance>* instances, const std::vector<ULONGLONG>& bare = {})
{
    PERF_OBJECT_TYPE type{};
    type.HeaderLength = sizeof(type);
    type.DefinitionLength = static_cast<DWORD>(sizeof(type) + counters.size() * sizeof(PERF_COUNTER_DEFINITION));
    type.ObjectNameTitleIndex = name;
    type.ObjectHelpTitleIndex = help;
    type.NumCounters = static_cast<DWORD>(counters.size());
    type.NumInstances = instances == nullptr ? PERF_NO_INSTANCES : static_cast<LONG>(instances->size());

    Bytes bytes;
    Append(&bytes, type);
    DWORD offset = 8;
    for (const Counter& counter : counters) {
        PERF_COUNTER_DEFINITION definition{};
        definition.ByteLength = sizeof(definition);
        definition.CounterNameTitleIndex = counter.name;
        definition.CounterHelpTitleIndex = counter.help;
        definition.DefaultScale = counter.scale;
        definition.CounterType = counter.type;
        definition.CounterSize = counter.size;
        definition.CounterOffset = offset;
        offset += counter.size;
        Append(&bytes, definition);
    }
    if (instances == nullptr) {
        AppendValues(&bytes, counters, bare);
    } else {
        for (const Instance& instance : *instances) {
            PERF_INSTANCE_DEFINITION definition{};
            const size_t             length = (instance.name.size() + 1) * sizeof(wchar_t);
            definition.ByteLength = static_cast<DWORD>(sizeof(definition) + (length + 7) / 8 * 8);
            definition.UniqueID = PERF_NO_UNIQUE_ID;
            definition.NameOffset = sizeof(definition);
            definition.NameLength = static_cast<DWORD>(length);
            Append(&bytes, definition);
            Bytes text(definition.ByteLength - sizeof(definition), 0);
            memcpy(text.data(), instance.name.c_str(), length);
            bytes.insert(bytes.end(), text.begin(), text.end());
            AppendValues(&bytes, counters, instance.values);
        }
    }
    type.TotalByteLength = static_cast<DWORD>(bytes.size());
    memcpy(bytes.data(), &type, sizeof(type));
    return bytes;
}

/* The block with these objects; with a gap as Wine lays it out: in front of the first object, and not counted. */
inline Bytes Block(const std::vector<Bytes>& objects, size_t gap = 0)
{
    PERF_DATA_BLOCK header{};
    memcpy(header.Signature, L"PERF", sizeof(header.Signature));
    header.LittleEndian = 1;
    header.HeaderLength = sizeof(header);
    header.NumObjectTypes = static_cast<DWORD>(objects.size());
    Bytes bytes;
    Append(&bytes, header);
    bytes.resize(bytes.size() + gap, 0);
    for (const Bytes& object : objects)
        bytes.insert(bytes.end(), object.begin(), object.end());
    header.TotalByteLength = static_cast<DWORD>(bytes.size() - gap);
    memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

}  // namespace perf_block_builder

#endif
