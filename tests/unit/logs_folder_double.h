/*
 * A log folder in memory: files with ids that are renamed as the logging library renames them, ids that are given again
 * as soon as nobody holds the deleted file, and a view that records what is shown.
 */
#ifndef DKPF_TESTS_UNIT_LOGS_FOLDER_DOUBLE_H
#define DKPF_TESTS_UNIT_LOGS_FOLDER_DOUBLE_H

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "logs_show.h"

namespace dkpf {

struct PictureFile {
    std::string content;
    ULONGLONG   id = 0;
    DWORD       readError = 0;
    ULONGLONG   errorBelow = ~ULONGLONG{ 0 };  // of reads that begin in front of this
    size_t      read = 0;                      // bytes handed out
};

class PictureLogs : public LogFolder {
public:
    using Key = std::pair<std::string, int>;

    DWORD Open(const std::string& log, int generation, std::unique_ptr<LogFile>* file) override
    {
        opens++;
        if (beforeOpen) {
            beforeOpen(generation);
        }
        if (openErrors.count({ log, generation }) != 0) {
            return openErrors[{ log, generation }];
        }
        const auto found = files.find({ log, generation });
        if (found == files.end()) {
            return missing;
        }
        *file = std::make_unique<Opened>(found->second);
        return ERROR_SUCCESS;
    }

    PictureFile& Write(const std::string& log, const std::string& text, int generation = 0)
    {
        std::shared_ptr<PictureFile>& file = files[{ log, generation }];
        if (!file) {
            file = std::make_shared<PictureFile>();
            file->id = FreeId();
            everMade.push_back(file);
        }
        file->content += text;
        return *file;
    }

    void Rename(const std::string& log, int from, int to)
    {
        if (files.count({ log, from }) != 0) {
            files[{ log, to }] = files[{ log, from }];
            files.erase({ log, from });
        }
    }

    void Delete(const std::string& log, int generation)
    {
        files.erase({ log, generation });
    }

    // The steps of one rotation, in the library's order: the lowest gap is filled from below; without a gap the oldest
    // goes.
    std::vector<std::function<void()>> RotationSteps(const std::string& log)
    {
        std::vector<std::function<void()>> steps;
        int                                gap = 1;
        while (gap <= LOG_GENERATIONS && files.count({ log, gap }) != 0) {
            gap++;
        }
        if (gap > LOG_GENERATIONS) {
            gap = LOG_GENERATIONS;
            steps.push_back([this, log] { Delete(log, LOG_GENERATIONS); });
        }
        for (; gap > 0; gap--) {
            steps.push_back([this, log, gap] { Rename(log, gap - 1, gap); });
        }
        return steps;
    }

    void Rotate(const std::string& log)
    {
        for (const auto& step : RotationSteps(log)) {
            step();
        }
    }

    DWORD                                       missing = ERROR_FILE_NOT_FOUND;
    std::map<Key, DWORD>                        openErrors;
    std::function<void(int)>                    beforeOpen;
    int                                         opens = 0;
    std::map<Key, std::shared_ptr<PictureFile>> files;

private:
    class Opened : public LogFile {
    public:
        explicit Opened(std::shared_ptr<PictureFile> picture) : file(std::move(picture))
        {
        }
        LogFileId Id() const override
        {
            return file->id;
        }
        ULONGLONG Size() override
        {
            return file->content.size();
        }
        DWORD Read(ULONGLONG at, char* to, DWORD size, DWORD* got) override
        {
            *got = 0;
            if (file->readError != 0 && at < file->errorBelow) {
                return file->readError;
            }
            if (at < file->content.size()) {
                *got = static_cast<DWORD>(file->content.copy(to, size, at));
            }
            file->read += *got;
            return ERROR_SUCCESS;
        }

    private:
        std::shared_ptr<PictureFile> file;
    };

    // The lowest id that no file has, whether it is held open or has a name: as file systems do.
    ULONGLONG FreeId()
    {
        everMade.erase(std::remove_if(everMade.begin(), everMade.end(),
                                      [](const std::weak_ptr<PictureFile>& file) { return file.expired(); }),
                       everMade.end());
        for (ULONGLONG id = 1;; id++) {
            const bool taken = std::any_of(everMade.begin(), everMade.end(),
                                           [id](const std::weak_ptr<PictureFile>& f) { return f.lock()->id == id; });
            if (!taken) {
                return id;
            }
        }
    }

    std::vector<std::weak_ptr<PictureFile>> everMade;
};

/* Each wait runs the next thing that the writers do; behind the last one the user ends. */
class PictureView : public LogsView {
public:
    bool Say(const std::string& lines) override
    {
        said += lines;
        return ++says != failingSay;
    }
    void Note(const std::string& words) override
    {
        notes.push_back(words);
    }
    bool Wait(DWORD ms) override
    {
        waits.push_back(ms);
        if (waits.size() > then.size()) {
            return true;
        }
        then[waits.size() - 1]();
        return false;
    }

    std::string                        said;
    std::vector<std::string>           notes;
    std::vector<DWORD>                 waits;
    std::vector<std::function<void()>> then;
    int                                says = 0;
    int                                failingSay = 0;  // this call and no other: nobody reads any more
};

/* A trace line of the diskperf unit with LF; "14:05:09.042", and the text that tells it from others. */
inline std::string TraceLine(const std::string& time, const std::string& text, const std::string& level = "0x0001")
{
    return "2026/03/07 " + time + " 1180:2044 " + level + " diskperf/src/diskperf_shm(123) Routine:" + text + "\r\n";
}

inline std::string WithoutCr(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

}  // namespace dkpf

#endif
