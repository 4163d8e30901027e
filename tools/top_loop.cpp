#include "top_loop.h"

#include <fmt/format.h>
#include <algorithm>

namespace dkpf {

static constexpr DWORD     PERIOD_MS = 1000;
static constexpr ULONGLONG REPEAT_MS = 10000;  // a trouble that stays is said again

/* Plain lines: the rows of every new sample, and what is wrong when that changes or stays. */
class PlainLines {
public:
    std::string TextOf(const Reading& reading, const CounterNames& names, const std::string& computer,
                       const SYSTEMTIME& local, ULONGLONG nowMs)
    {
        const TopState state = StateOf(reading);
        const bool     changed = state != m_state || (state == TopState::Unavailable && reading.words != m_words);
        std::string    text;
        if (state != TopState::Live && (changed || nowMs - m_saidMs >= REPEAT_MS)) {
            text +=
                fmt::format("{:02}:{:02}:{:02} {}\n", local.wHour, local.wMinute, local.wSecond, StateText(reading));
            m_saidMs = nowMs;
        }
        m_state = state;
        m_words = reading.words;
        if (state != TopState::Live || reading.state != ReadingState::Fresh)
            return text;
        if (!m_headed)
            text += TopHeading(reading, names, computer);
        m_headed = true;
        if (reading.attachedAgain)
            text += fmt::format("{:02}:{:02}:{:02} the disk agent was started again: attached to it anew\n",
                                local.wHour, local.wMinute, local.wSecond);
        return text + TopLines(reading);
    }

private:
    TopState    m_state = TopState::Live;
    std::string m_words;
    ULONGLONG   m_saidMs = 0;
    bool        m_headed = false;
};

TopEnd TopLoop(const TopOptions& options, const std::string& computer, IntervalSource* source, TopView* view)
{
    const ULONGLONG start = view->NowMs();
    const ULONGLONG lengthMs = static_cast<ULONGLONG>(options.seconds) * 1000;
    ULONGLONG       due = start;
    PlainLines      plain;
    TopEnd          end;

    for (;;) {
        Reading reading = source->Next();
        if (source->Waiting())
            reading.state = ReadingState::Stale;  // without values yet, and nothing is wrong
        const TopState state = StateOf(reading);
        if (state == TopState::Live || state == TopState::Late)
            end.everRead = true;
        end.words = StateText(reading);

        int width = 0;
        int height = 0;
        if (view->Size(&width, &height)) {
            view->Show(TopScreen(reading, source->Names(), computer, std::max(1, width), std::max(1, height)));
        } else {
            const std::string text = plain.TextOf(reading, source->Names(), computer, view->LocalNow(), view->NowMs());
            if (!text.empty())
                view->Say(text);
        }

        const ULONGLONG now = view->NowMs();
        if (lengthMs != 0 && now - start >= lengthMs)
            return end;
        due = std::max(due + PERIOD_MS, now);  // a reading that took long is not made up for
        const ULONGLONG wake = lengthMs != 0 ? std::min(due, start + lengthMs) : due;
        if (view->Wait(static_cast<DWORD>(wake - now)))
            return end;
    }
}

}  // namespace dkpf
