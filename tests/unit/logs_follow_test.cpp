// dkpfctl logs --follow: each line once and in order, whatever the writers do between two looks or in the middle of
// one.
#include <gmock/gmock.h>

#include "unit/logs_folder_double.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class LogsFollow : public testing::Test {
protected:
    LogsFollow()
    {
        request.logs = { FindLogSource("diskperf") };
        request.follow = true;
    }

    std::string Follow()
    {
        good = ShowLogs(request, "C:\\HOME\\log", &logs, &view);
        return view.said;
    }

    // Appends the next numbered line.
    void WriteNext(const char* log = "diskperf")
    {
        const std::string line = TraceLine("14:05:09.042", " " + std::to_string(++number));
        logs.Write(log, line);
        written += WithoutCr(line);
    }

    void Then(std::function<void()> step)
    {
        view.then.push_back(std::move(step));
    }

    void RotateAndWrite()
    {
        logs.Rotate("diskperf");
        WriteNext();
    }

    PictureLogs logs;
    PictureView view;
    LogsRequest request;
    bool        good = false;
    int         number = 0;
    std::string written;
};

TEST_F(LogsFollow, ShowsWhatComesAndEndsWellWhenTheUserWantsTo)
{
    WriteNext();
    Then([this] { WriteNext(); });
    Then([] {});
    Then([this] {
        WriteNext();
        WriteNext();
    });
    EXPECT_EQ(Follow(), written);
    EXPECT_TRUE(good);
    EXPECT_THAT(view.notes, IsEmpty());
    EXPECT_THAT(view.waits, ElementsAre(250u, 250u, 250u, 250u));
}

TEST_F(LogsFollow, ALineThatIsBeingWrittenIsShownWhenItIsWhole)
{
    WriteNext();
    const std::string next = TraceLine("14:05:09.042", " half");
    Then([this, next] { logs.Write("diskperf", next.substr(0, 60)); });
    Then([this, next] {
        EXPECT_EQ(view.said, written);
        logs.Write("diskperf", next.substr(60));
    });
    const std::string shown = Follow();
    EXPECT_EQ(shown, written + WithoutCr(next));
    EXPECT_THAT(view.notes, IsEmpty());
}

TEST_F(LogsFollow, LastLinesThenWhatComes)
{
    for (int n = 0; n < 10; n++) {
        WriteNext();
    }
    Then([this] { WriteNext(); });
    request.lines = 2;
    const size_t      ninth = written.find(WithoutCr(TraceLine("14:05:09.042", " 9")));
    const std::string shown = Follow();
    EXPECT_EQ(shown, written.substr(ninth));
}

TEST_F(LogsFollow, NoLastLinesThenWhatComesAndALineBegunBeforeIsShownWhole)
{
    WriteNext();
    const std::string next = TraceLine("14:05:09.042", " half");
    logs.Write("diskperf", next.substr(0, 60));
    Then([this, next] { logs.Write("diskperf", next.substr(60)); });
    request.lines = 0;
    EXPECT_EQ(Follow(), WithoutCr(next));
}

// A look before and behind each single step of a rotation, with a line of the old file just before it, for each number
// of generations that may be there, and gaps among them.
TEST_F(LogsFollow, ALookAtEachStepOfARotationLosesAndRepeatsNothing)
{
    for (int there = 0; there <= LOG_GENERATIONS; there++) {
        for (int gap = 0; gap <= there; gap++) {
            logs.files.clear();
            view = PictureView();
            number = 0;
            written.clear();
            for (int n = 0; n < there; n++) {
                logs.Rotate("diskperf");
                WriteNext();
            }
            if (gap > 0) {
                logs.Rename("diskperf", gap, 90);  // out of sight
                const std::string lost =
                    WithoutCr(logs.files.count({ "diskperf", 90 }) != 0 ? logs.files[{ "diskperf", 90 }]->content
                                                                        : std::string());
                if (!lost.empty()) {
                    written.erase(written.find(lost), lost.size());
                }
            }
            WriteNext();
            for (int round = 0; round < 2; round++) {
                Then([this] { WriteNext(); });
                const size_t steps = logs.RotationSteps("diskperf").size();
                for (size_t step = 0; step < steps + 1; step++) {
                    Then([this, step] {
                        static std::vector<std::function<void()>> rotation;
                        if (step == 0) {
                            rotation = logs.RotationSteps("diskperf");
                        }
                        if (step < rotation.size()) {
                            rotation[step]();
                        }
                    });
                }
                Then([this] { WriteNext(); });
            }
            ASSERT_EQ(Follow(), written) << there << " generations, gap " << gap;
            ASSERT_THAT(view.notes, IsEmpty());
        }
    }
}

// The same in the middle of a look: rotations, each with a line behind it, between two of its opens.
TEST_F(LogsFollow, RotationsInTheMiddleOfALookLoseAndRepeatNothing)
{
    for (int there = 0; there < LOG_GENERATIONS; there++) {
        for (int at = 0; at <= LOG_GENERATIONS; at++) {
            // In the first look so few that no file goes that was never seen.
            const int atFirst = std::min(3, LOG_GENERATIONS - there);
            logs.files.clear();
            view = PictureView();
            number = 0;
            written.clear();
            WriteNext();
            for (int n = 0; n < there; n++) {
                RotateAndWrite();
            }
            const auto rotateAt = [this, at](int times) {
                logs.beforeOpen = [this, at, times](int generation) {
                    if (generation == at) {
                        logs.beforeOpen = nullptr;
                        for (int n = 0; n < times; n++) {
                            RotateAndWrite();
                        }
                    }
                };
            };
            rotateAt(atFirst);
            for (int times = 1; times <= 4; times++) {
                Then([this, rotateAt, times] {
                    RotateAndWrite();
                    rotateAt(times);
                });
            }
            Then([this] {
                logs.beforeOpen = nullptr;
                WriteNext();
            });
            ASSERT_EQ(Follow(), written) << there << " generations, at " << at;
            ASSERT_THAT(view.notes, IsEmpty());
        }
    }
}

// File systems give the id of a deleted file to the next one that is made. A full set deletes one in each rotation.
TEST_F(LogsFollow, AnIdThatIsGivenAgainDeceivesNobody)
{
    for (int n = 0; n < 16; n++) {
        logs.Rotate("diskperf");
        WriteNext();
    }
    for (int n = 0; n < 60; n++) {
        Then([this, n] {
            for (int rotations = 0; rotations < 1 + n % 15; rotations++) {
                logs.Rotate("diskperf");
                WriteNext();
            }
        });
    }
    EXPECT_EQ(Follow(), written);
    EXPECT_THAT(view.notes, IsEmpty());
}

TEST_F(LogsFollow, WhatWasRotatedAwayUnseenIsSaid)
{
    WriteNext();
    Then([this] {
        for (int n = 0; n < 16; n++) {
            logs.Rotate("diskperf");
            WriteNext();
        }
    });
    // Line 1 was shown; its file is gone, and so is nothing else: 16 files hold lines 2 to 17.
    EXPECT_EQ(Follow(), written);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("lines may be missing")));
}

TEST_F(LogsFollow, ALateWritersLineInTheFileBeforeIsShown)
{
    WriteNext();
    Then([this] {
        logs.Rotate("diskperf");
        WriteNext();
    });
    Then([this] { logs.Write("diskperf", TraceLine("14:05:09.042", " late"), 1); });
    const std::string shown = Follow();
    EXPECT_EQ(shown, written + WithoutCr(TraceLine("14:05:09.042", " late")));
}

TEST_F(LogsFollow, OfDeletedFilesNoneIsHeldBehindTheNextRotation)
{
    for (int n = 0; n < 16; n++) {
        logs.Rotate("diskperf");
        WriteNext();
    }
    const std::weak_ptr<PictureFile> oldest = logs.files[{ "diskperf", 15 }];
    Then([this] {
        logs.Rotate("diskperf");
        WriteNext();
    });
    Then([oldest] { EXPECT_TRUE(oldest.expired()); });
    EXPECT_EQ(Follow(), written);
    EXPECT_EQ(view.waits.size(), 3u);
}

TEST_F(LogsFollow, AFileDeletedByHandIsFollowedByTheNewOne)
{
    WriteNext();
    Then([this] { logs.Delete("diskperf", 0); });
    Then([this] { WriteNext(); });
    Then([this] { WriteNext(); });
    EXPECT_EQ(Follow(), written);
}

TEST_F(LogsFollow, AFileCutByHandIsReadFromItsBeginning)
{
    WriteNext();
    WriteNext();
    Then([this] {
        logs.files[{ "diskperf", 0 }]->content.clear();
        WriteNext();
    });
    EXPECT_EQ(Follow(), written);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("cut short")));
}

// A full disk takes a part of a line, and the writer takes it back.
TEST_F(LogsFollow, APartOfALineThatIsTakenBackIsNeverShown)
{
    WriteNext();
    Then([this] { logs.Write("diskperf", "2026/03/07 14:05:0"); });
    Then([this] {
        std::string& content = logs.files[{ "diskperf", 0 }]->content;
        content.resize(content.size() - 18);
        WriteNext();
    });
    EXPECT_EQ(Follow(), written);
    EXPECT_THAT(view.notes, IsEmpty());
}

TEST_F(LogsFollow, WaitsForALogThatIsNotThereYet)
{
    Then([] {});
    Then([this] { WriteNext(); });
    EXPECT_EQ(Follow(), written);
    EXPECT_TRUE(good);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("waiting until something is written to it")));
}

TEST_F(LogsFollow, WithoutTheFolderItDoesNotWait)
{
    logs.missing = ERROR_PATH_NOT_FOUND;
    EXPECT_EQ(Follow(), "");
    EXPECT_FALSE(good);
    EXPECT_THAT(view.waits, IsEmpty());
}

// Two rotations; the file between is held without sharing for a while. It is said once, and order is kept.
TEST_F(LogsFollow, AHeldFileDelaysWhatComesBehindIt)
{
    WriteNext();
    const std::string one = written;
    Then([this] {
        logs.Rotate("diskperf");
        WriteNext();
        logs.Rotate("diskperf");
        WriteNext();
        logs.openErrors[{ "diskperf", 1 }] = ERROR_SHARING_VIOLATION;
    });
    Then([this, one] { EXPECT_EQ(view.said, one); });
    Then([this, one] {
        EXPECT_EQ(view.said, one);
        logs.openErrors.clear();
    });
    EXPECT_EQ(Follow(), written);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("diskperf.1.log could not be opened: error 32")));
}

// Said once, however often it is looked at, and what comes is shown when it can be read again.
TEST_F(LogsFollow, AFileThatCannotBeReadIsSaidOnceUntilItCan)
{
    WriteNext();
    const std::string one = written;
    const auto        breakIt = [this] {
        logs.files[{ "diskperf", 0 }]->readError = ERROR_CRC;
        WriteNext();
    };
    const auto mendIt = [this] {
        EXPECT_NE(view.said, written);
        logs.files[{ "diskperf", 0 }]->readError = 0;
    };
    Then(breakIt);
    Then([] {});
    Then([] {});
    Then([this, mendIt] {
        EXPECT_EQ(view.notes.size(), 1u);
        mendIt();
    });
    Then([] {});
    Then(breakIt);
    Then(mendIt);
    EXPECT_EQ(Follow(), written);
    EXPECT_FALSE(good);
    const auto note = HasSubstr("a part of diskperf.log could not be read: error 23");
    EXPECT_THAT(view.notes, ElementsAre(note, note));
}

// The file is named as it is called now.
TEST_F(LogsFollow, AFileThatWasRotatedIsNamedByItsNewName)
{
    WriteNext();
    Then([this] {
        RotateAndWrite();
        RotateAndWrite();
    });
    Then([this] {
        const auto late = logs.files[{ "diskperf", 1 }];
        logs.Write("diskperf", TraceLine("14:05:09.042", " late"), 1);
        late->readError = ERROR_CRC;
    });
    EXPECT_EQ(Follow(), written);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("a part of diskperf.1.log could not be read: error 23")));
}

// Each time it is held, and each file that is.
TEST_F(LogsFollow, AFileThatIsHeldAgainIsSaidAgain)
{
    WriteNext();
    const auto hold = [this] {
        RotateAndWrite();
        RotateAndWrite();
        logs.openErrors[{ "diskperf", 0 }] = ERROR_SHARING_VIOLATION;
        logs.openErrors[{ "diskperf", 1 }] = ERROR_ACCESS_DENIED;
    };
    const auto letGo = [this] {
        EXPECT_NE(view.said, written);
        logs.openErrors.clear();
    };
    Then(hold);
    Then([] {});
    Then(letGo);
    Then(hold);
    Then(letGo);
    EXPECT_EQ(Follow(), written);
    const auto current = HasSubstr("diskperf.log could not be opened: error 32");
    const auto older = HasSubstr("diskperf.1.log could not be opened: error 5");
    EXPECT_THAT(view.notes, ElementsAre(current, older, current, older));
}

// Held from the first look on; the one behind it is there.
TEST_F(LogsFollow, ACurrentFileHeldAtFirstIsSaidOnceAndFollows)
{
    WriteNext();
    logs.Rotate("diskperf");
    WriteNext();
    logs.openErrors[{ "diskperf", 0 }] = ERROR_SHARING_VIOLATION;
    Then([] {});
    Then([this] { logs.openErrors.clear(); });
    EXPECT_EQ(Follow(), written);
    EXPECT_THAT(view.notes, ElementsAre(testing::AllOf(HasSubstr("diskperf.log could not be opened: error 32"),
                                                       HasSubstr("its lines follow as soon as it can be."))));
}

TEST_F(LogsFollow, EndsWhenNobodyReadsAnyMore)
{
    WriteNext();
    view.failingSay = 2;
    Then([this] { WriteNext(); });
    Then([] { ADD_FAILURE() << "went on"; });
    Follow();
    EXPECT_TRUE(good);
}

TEST_F(LogsFollow, SeveralLogsStandInTheOrderOfTimesWithinALook)
{
    request.logs = { FindLogSource("diskperf"), FindLogSource("trace") };
    logs.Write("diskperf", TraceLine("10:00:00.000", " a1"));
    logs.Write("diskperf_trace", TraceLine("10:00:00.001", " b1"));
    Then([this] {
        logs.Write("diskperf", TraceLine("10:00:00.003", " a2"));
        logs.Write("diskperf_trace", TraceLine("10:00:00.002", " b2"));
        logs.Rotate("diskperf_trace");
        logs.Write("diskperf_trace", TraceLine("10:00:00.004", " b3"));
    });
    EXPECT_EQ(Follow(), WithoutCr("diskperf " + TraceLine("10:00:00.000", " a1") + "trace    " +
                                  TraceLine("10:00:00.001", " b1") + "trace    " + TraceLine("10:00:00.002", " b2") +
                                  "diskperf " + TraceLine("10:00:00.003", " a2") + "trace    " +
                                  TraceLine("10:00:00.004", " b3")));
}

TEST_F(LogsFollow, AFilterHoldsForWhatComesToo)
{
    request.filter.levels = 1;
    request.lines = 1;
    logs.Write("diskperf", TraceLine("10:00:00.000", " a") + TraceLine("10:00:00.000", " b", "0x0008"));
    Then([this] {
        logs.Write("diskperf", TraceLine("10:00:00.000", " c", "0x0008") + TraceLine("10:00:00.000", " d"));
    });
    EXPECT_EQ(Follow(), WithoutCr(TraceLine("10:00:00.000", " a") + TraceLine("10:00:00.000", " d")));
}

}  // namespace
