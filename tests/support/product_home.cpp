#include "support/product_home.h"

ProductHome::ProductHome()
{
    for (const wchar_t* binary :
         { L"tnwdiskperf.dll", L"tnwlog.dll", L"tnwxml.dll", L"tnwdiskfltr.dll", L"tnwmsg.dll" }) {
        Install(binary);
    }
    MakeFolder(L"etc\\policy");
    CopyIn(L"" POLICY_FILE, L"etc\\policy\\diskperf.xml");
    Configure({ { "parameters/collectinterval", "1" }, { "parameters/writeinterval", "1" } });
}

void ProductHome::Configure(const std::map<std::string, std::string>& settings)
{
    std::string parts[2];
    for (const auto& setting : settings) {
        values[setting.first] = setting.second;
    }
    for (const auto& value : values) {
        const std::string part = value.first.substr(0, value.first.find('/'));
        const std::string key = value.first.substr(part.size() + 1);
        parts[part == "log"] += "<" + key + ">" + value.second + "</" + key + ">\r\n";
    }
    Write(L"etc\\cluster.xml", "<root>\r\n<diskperf>\r\n<parameters>\r\n" + parts[0] + "</parameters>\r\n<log>\r\n" +
                                   parts[1] + "</log>\r\n</diskperf>\r\n</root>\r\n");
}

void ProductHome::BreakConfiguration()
{
    Write(L"etc\\cluster.xml", "<root>\r\n<diskperf>\r\n<parameters>\r\n<writeinterval>5</wrong>\r\n");
}

std::vector<std::string> ProductHome::Lines(const wchar_t* relative) const
{
    const std::string        text = Read(relative);
    std::vector<std::string> lines;
    size_t                   from = 0;
    for (size_t end = 0; (end = text.find('\n', from)) != std::string::npos; from = end + 1) {
        const bool whole = end > from && text[end - 1] == '\r';
        lines.push_back(whole ? text.substr(from, end - 1 - from) : text.substr(from, end - from) + "<no CR>");
    }
    return lines;
}

int ProductHome::Events(const char* id) const
{
    int count = 0;
    for (const std::string& line : Lines(L"log\\diskperf_event.log")) {
        count += line.find(std::string(" ") + id + " ") != std::string::npos;
    }
    return count;
}
