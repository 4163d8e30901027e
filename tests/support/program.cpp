#include "support/program.h"

#include <stdexcept>

#include "support/patience.h"

/* A pipe of which one end goes to the child. */
static void MakePipe(HANDLE* readEnd, HANDLE* writeEnd, const HANDLE* ours)
{
    SECURITY_ATTRIBUTES inherit = { sizeof(inherit), NULL, TRUE };
    if (!CreatePipe(readEnd, writeEnd, &inherit, 0)) {
        throw std::runtime_error("no pipe");
    }
    SetHandleInformation(*ours, HANDLE_FLAG_INHERIT, 0);
}

Program::Program(const std::wstring& exe, const std::string& arguments, DWORD flags)
{
    std::wstring command = L"\"" + exe + L"\" " + std::wstring(arguments.begin(), arguments.end());
    STARTUPINFOW startup = {};
    HANDLE       itsInput = NULL, itsOutput = NULL;

    MakePipe(&itsInput, &toIt, &toIt);
    MakePipe(&fromIt, &itsOutput, &fromIt);
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = itsInput;
    startup.hStdOutput = itsOutput;
    startup.hStdError = itsOutput;
    const bool  started = Created([&] {
        return CreateProcessW(exe.c_str(), &command[0], NULL, NULL, TRUE, flags, NULL, NULL, &startup, &process);
    });
    const DWORD error = GetLastError();
    CloseHandle(itsInput);
    CloseHandle(itsOutput);
    if (!started) {
        CloseHandle(toIt);
        CloseHandle(fromIt);
        throw std::runtime_error("a program does not start: error " + std::to_string(error));
    }
}

Program::~Program()
{
    Kill();
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    CloseHandle(toIt);
    if (fromIt != NULL) {
        CloseHandle(fromIt);
    }
}

DWORD Program::Id() const
{
    return process.dwProcessId;
}

/* Takes what is there. FALSE: nothing yet; throws at the end of the stream. */
bool Program::Read()
{
    char  block[4096];
    DWORD count = 0;
    if (!PeekNamedPipe(fromIt, NULL, 0, NULL, &count, NULL)) {
        throw std::runtime_error("a program ended: " + unread);
    }
    if (count == 0) {
        return false;
    }
    ReadFile(fromIt, block, sizeof(block), &count, NULL);
    unread.append(block, count);
    return true;
}

std::string Program::Line()
{
    size_t end = 0;
    if (!Eventually([&] {
            while ((end = unread.find('\n')) == std::string::npos && Read()) {
            }
            return end != std::string::npos;
        })) {
        throw std::runtime_error("a program says nothing: " + unread);
    }
    std::string line = unread.substr(0, end);
    unread.erase(0, end + 1);
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

void Program::Tell(const std::string& command)
{
    const std::string line = command + "\n";
    DWORD             count = 0;
    WriteFile(toIt, line.data(), static_cast<DWORD>(line.size()), &count, NULL);
}

std::string Program::Ask(const std::string& command)
{
    Tell(command);
    return Line();
}

std::string Program::Rest()
{
    char  block[4096];
    DWORD count = 0;
    while (ReadFile(fromIt, block, sizeof(block), &count, NULL) && count != 0) {
        unread.append(block, count);
    }
    return unread;
}

DWORD Program::End()
{
    DWORD code = 999;
    if (WaitForSingleObject(process.hProcess, PATIENCE_MS) == WAIT_OBJECT_0) {
        GetExitCodeProcess(process.hProcess, &code);
    }
    return code;
}

void Program::Kill()
{
    TerminateProcess(process.hProcess, 77);
    WaitForSingleObject(process.hProcess, PATIENCE_MS);
}

void Program::CloseOutput()
{
    CloseHandle(fromIt);
    fromIt = NULL;
}

static BOOL WINAPI NotUs(DWORD)
{
    return TRUE;
}

bool Program::CtrlC()
{
    FreeConsole();
    if (!AttachConsole(Id())) {
        return false;
    }
    // It reaches all that have this console, us included.
    SetConsoleCtrlHandler(NotUs, TRUE);
    const BOOL sent = GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
    FreeConsole();
    return sent != FALSE;
}

Ran RunToEnd(const std::wstring& exe, const std::string& arguments)
{
    Program           program(exe, arguments);
    const std::string output = program.Rest();
    return { program.End(), output };
}
