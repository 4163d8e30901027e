#include "perf_block.h"

#include <winperf.h>
#include <fmt/format.h>
#include <algorithm>
#include <cstring>

namespace dkpf {

namespace {

/* Part of the block that a step may read: [begin, end). */
struct Range {
    size_t begin = 0;
    size_t end = 0;

    size_t Length() const
    {
        return end - begin;
    }
    bool Holds(size_t offset, size_t length) const
    {
        return offset <= Length() && length <= Length() - offset;
    }
};

class Walker {
public:
    Walker(const BYTE* data, size_t size) : m_data(data), m_size(size)
    {
    }

    PerfBlock Walk();

private:
    /* FALSE where the record does not fit behind offset. */
    template <class Record> bool Read(const Range& range, size_t offset, Record* record) const
    {
        if (!range.Holds(offset, sizeof(Record)))
            return false;
        std::memcpy(record, m_data + range.begin + offset, sizeof(Record));
        return true;
    }

    bool Objects(const Range& range, DWORD count, PerfBlock* block);
    bool Object(const Range& rest, PerfObject* object, size_t* length);
    bool Counters(const Range& definitions, const PERF_OBJECT_TYPE& type, PerfObject* object);
    bool Instances(const Range& whole, const PERF_OBJECT_TYPE& type, PerfObject* object);
    bool Name(const Range& range, const PERF_INSTANCE_DEFINITION& definition, std::wstring* name);
    bool Values(const Range& rest, PerfInstance* instance, size_t* length);
    bool Damaged(std::string words);

    const BYTE*        m_data;
    size_t             m_size;
    std::vector<DWORD> m_offsets;  // of the counters of the object under way, in a counter block
    PerfObject*        m_object = nullptr;
    std::string        m_damage;
};

bool Walker::Damaged(std::string words)
{
    m_damage = std::move(words);
    return false;
}

bool Walker::Name(const Range& range, const PERF_INSTANCE_DEFINITION& definition, std::wstring* name)
{
    if (definition.NameLength % sizeof(WCHAR) != 0 || !range.Holds(definition.NameOffset, definition.NameLength))
        return Damaged(fmt::format("the name of instance {} lies outside of it", m_object->instances.size()));
    name->resize(definition.NameLength / sizeof(WCHAR));
    std::memcpy(name->data(), m_data + range.begin + definition.NameOffset, definition.NameLength);
    name->resize(std::min(name->find(L'\0'), name->size()));
    return true;
}

bool Walker::Values(const Range& rest, PerfInstance* instance, size_t* length)
{
    PERF_COUNTER_BLOCK block{};
    if (!Read(rest, 0, &block) || block.ByteLength < sizeof(block) || !rest.Holds(0, block.ByteLength))
        return Damaged(
            fmt::format("the counter block of instance {} does not fit its object", m_object->instances.size()));
    const Range range{ rest.begin, rest.begin + block.ByteLength };
    for (size_t i = 0; i < m_offsets.size(); i++) {
        const DWORD size = m_object->counters[i].size;
        if (!range.Holds(m_offsets[i], size))
            return Damaged(fmt::format("counter {} of instance {} lies outside of the counter block", i,
                                       m_object->instances.size()));
        ULONGLONG value = 0;
        if (size == sizeof(DWORD) || size == sizeof(ULONGLONG))
            std::memcpy(&value, m_data + range.begin + m_offsets[i], size);
        instance->values.push_back(value);
    }
    *length = block.ByteLength;
    return true;
}

bool Walker::Instances(const Range& whole, const PERF_OBJECT_TYPE& type, PerfObject* object)
{
    Range  rest{ whole.begin + type.DefinitionLength, whole.end };
    size_t length = 0;
    if (type.NumInstances == PERF_NO_INSTANCES) {
        PerfInstance instance;
        if (!Values(rest, &instance, &length))
            return false;
        object->instances.push_back(std::move(instance));
        return true;
    }
    object->hasInstances = true;
    // Each instance takes some bytes of the rest, so a wrong number ends at the object's end.
    for (LONG i = 0; i < type.NumInstances; i++) {
        PERF_INSTANCE_DEFINITION definition{};
        PerfInstance             instance;
        if (!Read(rest, 0, &definition) || definition.ByteLength < sizeof(definition) ||
            !rest.Holds(0, definition.ByteLength))
            return Damaged(fmt::format("instance {} of {} does not fit its object", i, type.NumInstances));
        instance.uniqueId = definition.UniqueID;
        if (!Name(Range{ rest.begin, rest.begin + definition.ByteLength }, definition, &instance.name))
            return false;
        rest.begin += definition.ByteLength;
        if (!Values(rest, &instance, &length))
            return false;
        rest.begin += length;
        object->instances.push_back(std::move(instance));
    }
    return true;
}

bool Walker::Counters(const Range& definitions, const PERF_OBJECT_TYPE& type, PerfObject* object)
{
    Range rest{ definitions.begin + type.HeaderLength, definitions.end };
    m_offsets.clear();
    for (DWORD i = 0; i < type.NumCounters; i++) {
        PERF_COUNTER_DEFINITION definition{};
        if (!Read(rest, 0, &definition) || definition.ByteLength < sizeof(definition) ||
            !rest.Holds(0, definition.ByteLength))
            return Damaged(fmt::format("counter definition {} of {} does not fit its object", i, type.NumCounters));
        object->counters.push_back({ definition.CounterNameTitleIndex, definition.CounterHelpTitleIndex,
                                     definition.DefaultScale, definition.CounterType, definition.CounterSize });
        m_offsets.push_back(definition.CounterOffset);
        rest.begin += definition.ByteLength;
    }
    return true;
}

bool Walker::Object(const Range& rest, PerfObject* object, size_t* length)
{
    PERF_OBJECT_TYPE type{};
    if (!Read(rest, 0, &type) || !rest.Holds(0, type.TotalByteLength))
        return Damaged("it does not fit the block");
    if (type.HeaderLength < sizeof(type) || type.DefinitionLength < type.HeaderLength ||
        type.TotalByteLength < type.DefinitionLength)
        return Damaged(fmt::format("its lengths contradict each other (header {}, definitions {}, all {})",
                                   type.HeaderLength, type.DefinitionLength, type.TotalByteLength));
    if (type.NumInstances < PERF_NO_INSTANCES)
        return Damaged(fmt::format("it says it has {} instances", type.NumInstances));
    m_object = object;
    object->nameIndex = type.ObjectNameTitleIndex;
    object->helpIndex = type.ObjectHelpTitleIndex;
    *length = type.TotalByteLength;
    return Counters(Range{ rest.begin, rest.begin + type.DefinitionLength }, type, object) &&
           Instances(Range{ rest.begin, rest.begin + type.TotalByteLength }, type, object);
}

bool Walker::Objects(const Range& range, DWORD count, PerfBlock* block)
{
    Range rest = range;
    for (DWORD i = 0; i < count; i++) {
        PerfObject object;
        size_t     length = 0;
        if (!Object(rest, &object, &length)) {
            block->damage = fmt::format("object {} of {}: {}", i, count, m_damage);
            return false;
        }
        block->objects.push_back(std::move(object));
        rest.begin += length;
    }
    return true;
}

PerfBlock Walker::Walk()
{
    static const WCHAR SIGNATURE[] = { L'P', L'E', L'R', L'F' };
    PerfBlock          block;
    PERF_DATA_BLOCK    header{};
    if (!Read(Range{ 0, m_size }, 0, &header)) {
        block.damage = fmt::format("{} bytes are no block of performance data", m_size);
        return block;
    }
    if (std::memcmp(header.Signature, SIGNATURE, sizeof(SIGNATURE)) != 0) {
        block.damage = "the block does not start with PERF";
        return block;
    }
    if (header.HeaderLength < sizeof(header) || header.TotalByteLength < header.HeaderLength ||
        header.TotalByteLength > m_size) {
        block.damage = fmt::format("the block's lengths contradict each other (header {}, all {}, buffer {})",
                                   header.HeaderLength, header.TotalByteLength, m_size);
        return block;
    }
    Range range{ header.HeaderLength, header.TotalByteLength };
    if (Objects(range, header.NumObjectTypes, &block) || !block.objects.empty())
        return block;

    const size_t gap = sizeof(PERF_DATA_BLOCK);
    if (m_size - header.TotalByteLength < gap)
        return block;
    PerfBlock behindGap;
    Objects(Range{ range.begin + gap, range.end + gap }, header.NumObjectTypes, &behindGap);
    return behindGap.damage.empty() || !behindGap.objects.empty() ? behindGap : block;
}

}  // namespace

PerfBlock WalkPerfBlock(const BYTE* data, size_t size)
{
    return Walker(data, size).Walk();
}

}  // namespace dkpf
