/*
 * A HOME of its own for one test: made empty in the temporary folder, gone with the object. Binaries and files of the
 * installation are copied in from the stage, since the libraries find HOME from the place they are loaded from.
 */
#pragma once
#include <filesystem>
#include <string>
#include <string_view>

class StageHome {
public:
    StageHome();
    ~StageHome();
    StageHome(const StageHome&) = delete;
    StageHome& operator=(const StageHome&) = delete;

    const std::filesystem::path& path() const
    {
        return m_path;
    }
    std::filesystem::path bin() const
    {
        return m_path / "bin";
    }
    std::filesystem::path etc() const
    {
        return m_path / "etc";
    }
    std::filesystem::path log() const
    {
        return m_path / "log";
    }
    std::filesystem::path perf() const
    {
        return m_path / "perf";
    }

    // Copies a file of the stage, for example "bin/tnwxml.dll", to the same place below this HOME; returns that place.
    std::filesystem::path Copy(const std::string& relative);
    // Writes a file below this HOME, byte for byte.
    void Write(const std::string& relative, std::string_view bytes);

private:
    std::filesystem::path m_path;
};
