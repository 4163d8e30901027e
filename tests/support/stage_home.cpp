#include "support/stage_home.h"
#include <fstream>
#include <stdexcept>
#include <windows.h>

namespace fs = std::filesystem;

// The stage lies beside the build tree, this program in its tests/bin.
static fs::path Stage()
{
    wchar_t aProgram[MAX_PATH] = {};

    GetModuleFileNameW(NULL, aProgram, MAX_PATH);
    return fs::path(aProgram).parent_path() / ".." / ".." / ".." / "stage";
}

StageHome::StageHome()
{
    static int nHomes = 0;
    const std::string name = "dkpf-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(nHomes++);

    m_path = fs::temp_directory_path() / name;
    fs::remove_all(m_path); // of an earlier process of that number
    for (const char* folder : { "bin", "etc/policy", "log", "perf" }) {
        fs::create_directories(m_path / folder);
    }
}

StageHome::~StageHome()
{
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

fs::path StageHome::Copy(const std::string& relative)
{
    const fs::path to = m_path / relative;

    fs::copy_file(Stage() / relative, to);
    return to;
}

void StageHome::Write(const std::string& relative, std::string_view bytes)
{
    std::ofstream out(m_path / relative, std::ios::binary | std::ios::trunc);

    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + relative);
    }
}
