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

/* The last page and a short list need no care here: the screen brings it into range. */
static void Scroll(TopWish wish, TopScroll* scroll)
{
    const size_t page = std::max<size_t>(1, scroll->page);
    switch (wish) {
    case TopWish::Up:
        scroll->first -= std::min<size_t>(1, scroll->first);
        break;
    case TopWish::Down:
        scroll->first += 1;
        break;
    case TopWish::PageUp:
        scroll->first -= std::min(page, scroll->first);
        break;
    case TopWish::PageDown:
        scroll->first += page;
        break;
    case TopWish::First:
        scroll->first = 0;
        break;
    case TopWish::Last:
        scroll->first = DKPF_NMP_MAX;
        break;
    case TopWish::None:
    case TopWish::End:
        break;
    }
}

/* FALSE: there is no screen. */
static bool ShowScreen(const Reading& reading, const CounterNames& names, const std::string& computer,
                       TopScroll* scroll, TopView* view)
{
    int width = 0;
    int height = 0;
    if (!view->Size(&width, &height))
        return false;
    view->Show(TopScreen(reading, names, computer, std::max(1, width), std::max(1, height), scroll));
    return true;
}

TopEnd TopLoop(const TopOptions& options, const std::string& computer, IntervalSource* source, TopView* view)
{
    const ULONGLONG start = view->NowMs();
    const ULONGLONG lengthMs = static_cast<ULONGLONG>(options.seconds) * 1000;
    ULONGLONG       due = start;
    PlainLines      plain;
    TopScroll       scroll;
    TopEnd          end;

    for (;;) {
        Reading reading = source->Next();
        if (source->Waiting())
            reading.state = ReadingState::Stale;  // without values yet, and nothing is wrong
        const TopState state = StateOf(reading);
        if (state == TopState::Live || state == TopState::Late)
            end.everRead = true;
        end.words = state == TopState::Unavailable ? reading.words : StateText(reading);  // nothing is tried again

        if (!ShowScreen(reading, source->Names(), computer, &scroll, view)) {
            const std::string text = plain.TextOf(reading, source->Names(), computer, view->LocalNow(), view->NowMs());
            if (!text.empty())
                view->Say(text);
        }

        ULONGLONG now = view->NowMs();
        if (lengthMs != 0 && now - start >= lengthMs)
            return end;
        due = std::max(due + PERIOD_MS, now);  // a reading that took long is not made up for
        const ULONGLONG wake = lengthMs != 0 ? std::min(due, start + lengthMs) : due;
        // A key moves what was read last; nothing is read for it, and a key that is held down puts off no reading.
        TopWish wish = TopWish::None;
        do {
            wish = view->Wait(static_cast<DWORD>(wake - now));
            if (wish == TopWish::End)
                return end;
            if (wish != TopWish::None) {
                Scroll(wish, &scroll);
                ShowScreen(reading, source->Names(), computer, &scroll, view);
            }
            now = view->NowMs();
        } while (wish != TopWish::None && now < wake);
    }
}

}  // namespace dkpf
