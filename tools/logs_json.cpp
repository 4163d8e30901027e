#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "logs_show.h"

namespace dkpf {

using Json = nlohmann::ordered_json;

static constexpr int LOGS_FORMAT = 1;

std::string LogLineJson(const LogSource& source, const LogLine& line)
{
    const LogRecord& record = line.record;
    Json             json = { { "format", LOGS_FORMAT }, { "log", source.name } };
    if (!line.isRecord) {
        json["unread"] = line.text;
    } else if (source.kind == LogKind::Events) {
        json["time"] = record.time;
        json["severity"] = record.severity;
        json["id"] = record.event;
        json["number"] = fmt::format("0x{:08X}", record.event);
        json["text"] = record.text;
    } else {
        json["time"] = record.time;
        json["pid"] = record.pid;
        json["tid"] = record.tid;
        json["level"] = record.level;
        json["levels"] = LevelNames(record.level);
        json["source"] = record.source;
        json["line"] = record.line;
        json["routine"] = record.routine;
        json["text"] = record.text;
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace dkpf
