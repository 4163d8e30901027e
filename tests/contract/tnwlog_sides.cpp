#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "contract/tnwlog_contract.h"
#include "doubles/tnwlog_double.h"
#include "support/test_home.h"
#include "support/tnwlog_api.h"

namespace {

/* ---- The library ---- */

class RealSide : public TnwlogSide {
public:
    RealSide()
    {
        m_home.Install(L"tnwmsg.dll");
        m_api = std::make_unique<TnwLogApi>(m_home.Install(L"tnwlog.dll"));
        log_init = m_api->log_init;
        log_term = m_api->log_term;
        log_write = m_api->log_write;
        TnwLoadStringTable = m_api->TnwLoadStringTable;
        TnwFreeStringTable = m_api->TnwFreeStringTable;
        TnwFormatMessage = m_api->TnwFormatMessage;
        log_util_init = m_api->log_util_init;
        log_util_term = m_api->log_util_term;
        log_util_write = m_api->log_util_write;
        log_util_rotate = m_api->log_util_rotate;
    }
    ~RealSide() override
    {
        for (const auto& held : m_held) {
            CloseHandle(held.second);
        }
    }

    std::vector<std::string> Trace(const char* log) override
    {
        // Time, process and thread; what follows may be too long for a regular expression.
        static const std::regex  prefix("\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\d+:\\d+ ");
        std::vector<std::string> lines;
        for (const std::string& line : Lines(L"log\\" + Wide(log) + L".log")) {
            const std::string start = line.substr(0, 64);
            std::smatch       found;
            const bool        whole = std::regex_search(start, found, prefix, std::regex_constants::match_continuous);
            lines.push_back(whole ? line.substr(static_cast<size_t>(found.length())) : "<of another form> " + line);
        }
        return lines;
    }

    std::vector<DWORD> Events() override
    {
        std::vector<DWORD> events;
        for (const std::string& line : Lines(L"log\\diskperf_event.log")) {
            events.push_back(strtoul(line.c_str() + line.find(" 0x") + 1, nullptr, 16));
        }
        return events;
    }

    std::vector<std::vector<std::string>> Csv(const char* file) override
    {
        std::vector<std::vector<std::string>> generations;
        for (int n = 99; n >= 0; n--) {
            const std::wstring path = L"perf\\" + Wide(file) + (n == 0 ? L"" : L"." + std::to_wstring(n)) + L".csv";
            if (m_home.Exists(path.c_str())) {
                generations.push_back(Lines(path));
            }
        }
        return generations;
    }

    void HoldName(const char* file) override
    {
        Hold(file, FILE_SHARE_READ | FILE_SHARE_WRITE);
    }
    void HoldAlone(const char* file) override
    {
        const std::wstring path = L"perf\\" + Wide(file) + L".csv";
        if (!m_home.Exists(path.c_str())) {
            m_home.Write(path.c_str(), "");
        }
        Hold(file, 0);
    }
    void LetGo(const char* file) override
    {
        CloseHandle(m_held.at(file));
        m_held.erase(file);
    }
    void MoveAway(const char* file) override
    {
        m_home.Move((L"perf\\" + Wide(file) + L".csv").c_str(), (L"moved" + std::to_wstring(++m_moved)).c_str());
    }

private:
    static std::wstring Wide(const std::string& text)
    {
        return std::wstring(text.begin(), text.end());
    }

    /* Whole lines; a rest without line end is marked. */
    std::vector<std::string> Lines(const std::wstring& path) const
    {
        const std::string        text = m_home.Read(path.c_str());
        std::vector<std::string> lines;
        size_t                   at = 0;
        for (size_t end = 0; (end = text.find("\r\n", at)) != std::string::npos; at = end + 2) {
            lines.push_back(text.substr(at, end - at));
        }
        if (at < text.size()) {
            lines.push_back(text.substr(at) + "<no line end>");
        }
        return lines;
    }

    void Hold(const char* file, DWORD share)
    {
        m_held[file] = m_home.Hold((L"perf\\" + Wide(file) + L".csv").c_str(), share);
    }

    TestHome                      m_home;
    std::unique_ptr<TnwLogApi>    m_api;  // gone before the home it lies in
    std::map<std::string, HANDLE> m_held;
    int                           m_moved = 0;
};

/* ---- The double ---- */

class DoubleSide : public TnwlogSide {
public:
    DoubleSide()
    {
        log_init = ::log_init;
        log_term = ::log_term;
        log_write = ::log_write;
        TnwLoadStringTable = ::TnwLoadStringTable;
        TnwFreeStringTable = ::TnwFreeStringTable;
        TnwFormatMessage = ::TnwFormatMessage;
        log_util_init = ::log_util_init;
        log_util_term = ::log_util_term;
        log_util_write = ::log_util_write;
        log_util_rotate = ::log_util_rotate;
    }

    std::vector<std::string> Trace(const char* log) override
    {
        std::vector<std::string> lines;
        for (const TraceLine& line : m_log.lines) {
            if (line.log == log && line.written) {
                char start[512], event[32] = "";
                snprintf(start, sizeof start, "0x%04lX %s(%d) %s:", line.level, line.source.c_str(), line.line,
                         line.routine.c_str());
                if ((line.level & TNWLOG_EVENT) != 0 && line.message != 0) {
                    snprintf(event, sizeof event, " <event 0x%08lX>", line.message);
                }
                lines.push_back(start + line.text + event);
            }
        }
        return lines;
    }

    std::vector<DWORD> Events() override
    {
        return m_log.Events();
    }

    std::vector<std::vector<std::string>> Csv(const char* file) override
    {
        std::vector<std::vector<std::string>> generations = m_log.csv[file].files;
        if (m_log.csv[file].movedAway) {
            generations.pop_back();
        }
        return generations;
    }

    void HoldName(const char* file) override
    {
        m_log.failRotate[file] = TNWLOG_NOT_OPEN;
    }
    void HoldAlone(const char* file) override
    {
        m_log.failWrite[file] = TNWLOG_NOT_OPEN;
    }
    void LetGo(const char* file) override
    {
        m_log.failRotate.erase(file);
        m_log.failWrite.erase(file);
    }
    void MoveAway(const char* file) override
    {
        m_log.csv[file].movedAway = true;
    }

private:
    Journal   m_journal;
    LogDouble m_log{ m_journal };
};

}  // namespace

std::unique_ptr<TnwlogSide> RealTnwlog()
{
    return std::make_unique<RealSide>();
}

std::unique_ptr<TnwlogSide> DoubleOfTnwlog()
{
    return std::make_unique<DoubleSide>();
}
