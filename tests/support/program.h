/*
 * A program in a process of its own that talks over its standard input and output, line by line. Ended with the object.
 */
#ifndef DKPF_TESTS_PROGRAM_H
#define DKPF_TESTS_PROGRAM_H

#include <windows.h>
#include <string>

class Program {
public:
    explicit Program(const std::wstring& exe, const std::string& arguments = "", DWORD flags = 0);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    DWORD       Id() const;
    std::string Line();                           // its next line, without the line end; throws where none comes
    std::string Ask(const std::string& command);  // one line to it, one line from it
    void        Tell(const std::string& command);
    std::string Rest();  // all that it still says, until it ends
    DWORD       End();   // waits; its exit code, 999 where it does not end
    void        Kill();
    void        CloseOutput();  // nobody reads any more what it says
    bool        CtrlC();        // as typed on its console; only where it was started with CREATE_NO_WINDOW

private:
    bool Read();

    PROCESS_INFORMATION process = {};
    HANDLE              toIt = NULL;
    HANDLE              fromIt = NULL;
    std::string         unread;
};

/* Runs a program to its end. */
struct Ran {
    DWORD       code;
    std::string output;  // standard output and error
};
Ran RunToEnd(const std::wstring& exe, const std::string& arguments);

#endif
