#include "terminal.h"

#include <algorithm>
#include <exception>

#include "console_out.h"
#include "text.h"

namespace dkpf {

/* What the handlers need. They run on threads of the system, or in the middle of a crash. */
static HANDLE        g_wish;             // event, set for good when the user wants to end
static HANDLE        g_before;           // the console's buffer before ours
static HANDLE        g_screen;           // ours
static volatile LONG g_screenShown = 0;  // 1: ours is shown

/* Any number of times, from any thread. */
static void RestoreConsole()
{
    if (InterlockedExchange(&g_screenShown, 0) == 0)
        return;
    // A console on top of another terminal (Wine's) draws only what is written: take our text away first.
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(g_screen, &info)) {
        const DWORD cells = static_cast<DWORD>(info.dwSize.X) * static_cast<DWORD>(info.dwSize.Y);
        DWORD       filled = 0;
        FillConsoleOutputAttribute(g_screen, info.wAttributes, cells, COORD{ 0, 0 }, &filled);
        FillConsoleOutputCharacterW(g_screen, L' ', cells, COORD{ 0, 0 }, &filled);
    }
    // Nor does it give the cursor back that our buffer hid.
    const CONSOLE_CURSOR_INFO shown = { 25, TRUE };
    SetConsoleCursorInfo(g_screen, &shown);
    SetConsoleActiveScreenBuffer(g_before);
}

static BOOL WINAPI OnControl(DWORD type)
{
    if (type == CTRL_C_EVENT || type == CTRL_BREAK_EVENT) {
        if (WaitForSingleObject(g_wish, 0) != WAIT_OBJECT_0) {
            SetEvent(g_wish);
            return TRUE;
        }
        // Asked for twice: the reading hangs. Ends as the system does it.
    }
    RestoreConsole();
    return FALSE;
}

static LPTOP_LEVEL_EXCEPTION_FILTER g_crashBefore;
static std::terminate_handler       g_terminateBefore;

static LONG WINAPI OnCrash(EXCEPTION_POINTERS* crash)
{
    RestoreConsole();
    return g_crashBefore != nullptr ? g_crashBefore(crash) : EXCEPTION_CONTINUE_SEARCH;
}

[[noreturn]] static void OnTerminate()
{
    RestoreConsole();
    if (g_terminateBefore != nullptr)
        g_terminateBefore();
    std::abort();
}

Terminal::Terminal(bool wantScreen)
{
    DWORD mode = 0;
    g_wish = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(OnControl, TRUE);
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    if (GetConsoleMode(input, &mode))
        m_input = input;

    CONSOLE_SCREEN_BUFFER_INFO info{};
    g_before = GetStdHandle(STD_OUTPUT_HANDLE);
    if (!wantScreen || !GetConsoleScreenBufferInfo(g_before, &info))
        return;
    const HANDLE screen = CreateConsoleScreenBuffer(GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                    nullptr, CONSOLE_TEXTMODE_BUFFER, nullptr);
    if (screen == INVALID_HANDLE_VALUE)
        return;
    m_screen = g_screen = screen;
    m_colours = info.wAttributes;
    const CONSOLE_CURSOR_INFO hidden = { 25, FALSE };
    SetConsoleCursorInfo(m_screen, &hidden);
    g_crashBefore = SetUnhandledExceptionFilter(OnCrash);
    g_terminateBefore = std::set_terminate(OnTerminate);
    InterlockedExchange(&g_screenShown, 1);
    SetConsoleActiveScreenBuffer(m_screen);
}

Terminal::~Terminal()
{
    RestoreConsole();
    if (m_screen != nullptr) {
        std::set_terminate(g_terminateBefore);
        SetUnhandledExceptionFilter(g_crashBefore);
        CloseHandle(m_screen);
    }
    SetConsoleCtrlHandler(OnControl, FALSE);
    CloseHandle(g_wish);
}

bool Terminal::Size(int* width, int* height)
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (m_screen == nullptr || !GetConsoleScreenBufferInfo(m_screen, &info))
        return false;
    *width = info.srWindow.Right - info.srWindow.Left + 1;
    *height = info.srWindow.Bottom - info.srWindow.Top + 1;
    return true;
}

static WORD Colours(Look look, WORD plain)
{
    switch (look) {
    case Look::Bold:
        return static_cast<WORD>(plain | FOREGROUND_INTENSITY);
    case Look::Loud:
        return BACKGROUND_RED | FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    case Look::Plain:
        break;
    }
    return plain;
}

void Terminal::Show(const std::vector<ScreenLine>& lines)
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (g_screenShown == 0 || !GetConsoleScreenBufferInfo(m_screen, &info))
        return;
    const size_t           width = static_cast<size_t>(info.srWindow.Right - info.srWindow.Left + 1);
    const size_t           height = static_cast<size_t>(info.srWindow.Bottom - info.srWindow.Top + 1);
    CHAR_INFO              blank{};
    std::vector<CHAR_INFO> cells;
    blank.Char.UnicodeChar = L' ';
    blank.Attributes = m_colours;
    cells.resize(width * height, blank);
    for (size_t y = 0; y < std::min(height, lines.size()); y++) {
        const std::wstring letters = Wide(lines[y].text);
        for (size_t x = 0; x < std::min(width, letters.size()); x++) {
            CHAR_INFO& cell = cells[y * width + x];
            cell.Char.UnicodeChar = letters[x];
            cell.Attributes = Colours(lines[y].look, m_colours);
        }
    }
    // Older consoles take at most 64 KiB in one call: a frame of usual size is one write, a huge one a few.
    const size_t band = std::max<size_t>(1, 60000 / (width * sizeof(CHAR_INFO)));
    for (size_t y = 0; y < height; y += band) {
        const size_t rows = std::min(band, height - y);
        SMALL_RECT   target = info.srWindow;
        target.Top = static_cast<SHORT>(info.srWindow.Top + static_cast<int>(y));
        target.Bottom = static_cast<SHORT>(target.Top + static_cast<int>(rows) - 1);
        WriteConsoleOutputW(m_screen, &cells[y * width], COORD{ static_cast<SHORT>(width), static_cast<SHORT>(rows) },
                            COORD{ 0, 0 }, &target);
    }
}

void Terminal::Say(const std::string& text)
{
    Print(text);
}

ULONGLONG Terminal::NowMs()
{
    return GetTickCount64();
}

SYSTEMTIME Terminal::LocalNow()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return now;
}

static TopWish WishOf(const KEY_EVENT_RECORD& key)
{
    static constexpr wchar_t ctrlC = 3;  // where the console hands it over as a letter
    switch (key.wVirtualKeyCode) {
    case VK_UP:
        return TopWish::Up;
    case VK_DOWN:
        return TopWish::Down;
    case VK_PRIOR:
        return TopWish::PageUp;
    case VK_NEXT:
        return TopWish::PageDown;
    case VK_HOME:
        return TopWish::First;
    case VK_END:
        return TopWish::Last;
    default:
        break;
    }
    const wchar_t letter = key.uChar.UnicodeChar;
    return letter == L'q' || letter == L'Q' || letter == ctrlC ? TopWish::End : TopWish::None;
}

TopWish Terminal::WishInInput()
{
    DWORD waiting = 0;
    if (!GetNumberOfConsoleInputEvents(m_input, &waiting)) {
        m_input = nullptr;
        return TopWish::None;
    }
    TopWish wish = TopWish::None;
    for (; waiting > 0 && wish == TopWish::None; waiting--) {
        INPUT_RECORD record{};
        DWORD        read = 0;
        if (!ReadConsoleInputW(m_input, &record, 1, &read) || read == 0)
            break;
        if (record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown)
            wish = WishOf(record.Event.KeyEvent);
    }
    return wish;
}

TopWish Terminal::Wait(DWORD ms)
{
    const ULONGLONG end = GetTickCount64() + ms;
    for (;;) {
        const ULONGLONG now = GetTickCount64();
        const HANDLE    events[] = { g_wish, m_input };
        TopWish         wish = TopWish::None;
        switch (WaitForMultipleObjects(m_input != nullptr ? 2 : 1, events, FALSE,
                                       static_cast<DWORD>(end > now ? end - now : 0))) {
        case WAIT_OBJECT_0:
            return TopWish::End;
        case WAIT_OBJECT_0 + 1:
            wish = WishInInput();
            if (wish != TopWish::None)
                return wish;
            break;  // other keys: go on waiting
        default:
            return TopWish::None;
        }
    }
}

}  // namespace dkpf
