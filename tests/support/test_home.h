/*
 * A home of the product's layout for one test: bin, etc, log and perf below a folder of its own in the temp folder,
 * gone with the object. Binaries come from build/.../tests/product, where CMake puts those that a test program names.
 */
#ifndef TEST_HOME_H
#define TEST_HOME_H

#include <windows.h>
#include <string>
#include <vector>

class TestHome {
public:
    /* lpLeaf: name of the home folder itself, for tests that want a long or strange one. */
    explicit TestHome(const wchar_t* lpLeaf = L"home");
    ~TestHome();
    TestHome(const TestHome&) = delete;
    TestHome& operator=(const TestHome&) = delete;

    /* Copies a DLL or program into bin (by another name if one is given). Returns its path there. */
    std::wstring Install(const wchar_t* lpBinary, const wchar_t* lpAs = nullptr) const;

    /* Copies any other file to a place in the home, relative to it. */
    void CopyIn(const wchar_t* lpFrom, const wchar_t* lpRelative) const;

    /* All paths below are relative to the home, with backslashes. */
    std::wstring              Path(const wchar_t* lpRelative) const;
    std::string               PlainPath(const wchar_t* lpRelative) const; /* for those who bear no \\?\ in front */
    bool                      Exists(const wchar_t* lpRelative) const;
    std::string               Read(const wchar_t* lpRelative) const; /* "" when it is not there */
    void                      Write(const wchar_t* lpRelative, const std::string& text) const;
    void                      Remove(const wchar_t* lpRelative) const; /* a file, or a folder with all in it */
    void                      MakeFolder(const wchar_t* lpRelative) const;
    void                      Move(const wchar_t* lpFrom, const wchar_t* lpTo) const;
    std::vector<std::wstring> List(const wchar_t* lpFolder) const; /* names, sorted */

    /* Opens a file as another program would; closed by the caller. dwShare 0: without any sharing. */
    HANDLE Hold(const wchar_t* lpRelative, DWORD dwShare) const;

private:
    std::wstring m_root; /* \\?\...; what is removed at the end */
    std::wstring m_home;
};

#endif
