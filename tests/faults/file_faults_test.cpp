// Every write of a file component fails in turn. A block that can't be written is lost, and nothing else: the rest of
// the file is as without the fault. An interrupted write and one that takes half are made up for.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "Muxora.h"
#include "core/clock.h"
#include "support/iso_frames.h"
#include "support/temp_folder.h"

namespace {

enum class Fault { kNone, kNoSpace, kIoError, kInterrupted, kShort };

struct Write {
    int64_t at;
    size_t length;
    std::vector<uint8_t> bytes;
};

// What the next writes of this thread do.
struct Plan {
    Fault fault = Fault::kNone;
    uint64_t first = 0;   // the write that fails
    uint64_t count = 0;   // how many from there on
    uint64_t writes = 0;  // so far
    std::vector<Write> lost;
    std::vector<size_t> lengths;  // of all
    int close_error = 0;          // what close says, having closed
    bool no_positions = false;    // the target is no regular file
    std::vector<Write>* keep = nullptr;
};
Plan* g_plan = nullptr;

ssize_t PlannedWrite(int file, const void* data, size_t length, int64_t at) {
    const auto write = [&](size_t size) { return syscall(SYS_pwrite64, file, data, size, at); };
    if (g_plan == nullptr) return write(length);
    const uint64_t number = g_plan->writes++;
    g_plan->lengths.push_back(length);
    if (g_plan->keep != nullptr) {
        const auto* const bytes = static_cast<const uint8_t*>(data);
        g_plan->keep->push_back({at, length, {bytes, bytes + length}});
    }
    if (number < g_plan->first || number - g_plan->first >= g_plan->count) return write(length);
    switch (g_plan->fault) {
        case Fault::kNoSpace:
        case Fault::kIoError:
            g_plan->lost.push_back({at, length, {}});
            errno = g_plan->fault == Fault::kNoSpace ? ENOSPC : EIO;
            return -1;
        case Fault::kInterrupted:
            errno = EINTR;
            return -1;
        case Fault::kShort:
            return write((length + 1) / 2);
        default:
            return write(length);
    }
}

}  // namespace

// In the place of the C library's.
extern "C" ssize_t pwrite(int file, const void* data, size_t length, off_t at) {
    return PlannedWrite(file, data, length, at);
}
extern "C" ssize_t pwrite64(int file, const void* data, size_t length, off64_t at) {
    return PlannedWrite(file, data, length, at);
}
extern "C" int close(int file) {
    const int result = static_cast<int>(syscall(SYS_close, file));
    if (g_plan == nullptr || g_plan->close_error == 0) return result;
    errno = g_plan->close_error;
    return -1;
}
extern "C" off_t lseek(int file, off_t offset, int origin) noexcept {
    if (g_plan != nullptr && g_plan->no_positions) {
        errno = ESPIPE;
        return -1;
    }
    return syscall(SYS_lseek, file, offset, origin);
}

namespace {

using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CFilePackage;
using Orvane::Muxora::ScopedClock;
using test::ByteVector;

Plan Failing(Fault fault, uint64_t first, uint64_t count) {
    Plan plan;
    plan.fault = fault;
    plan.first = first;
    plan.count = count;
    return plan;
}

class FileFaults : public testing::TestWithParam<const char*> {
  protected:
    ~FileFaults() override { g_plan = nullptr; }

    // The blocks say no position.
    static bool OnlyForward() {
        const std::string key = GetParam();
        return key == "ovx" || key == "fmp4" || key == "xts";
    }

    // The file of some 40 frames, written under the plan.
    ByteVector Record(Plan& plan) {
        const std::string path = folder.Path("file");
        const bool sound_alone = std::string(GetParam()) == "wav";
        g_plan = &plan;
        {
            CFilePackage package(GetParam());
            EXPECT_TRUE(package.open(path.c_str()));
            for (uint8_t i = 0; i < 20; ++i) {
                ByteVector picture = i == 0 ? test::KeyFrameOfAnEncoder() : test::PFrame(i);
                picture.resize(200 + 50 * i, static_cast<uint8_t>(0x21 + i));
                const AttributeMap video = {{"frametype", 86},
                                            {"framesubtype", i == 0 ? 1 : 2},
                                            {"encodetype", 2},
                                            {"width", 1920},
                                            {"height", 1080},
                                            {"rate", 25},
                                            {"timestamp", 1000 + 40 * i}};
                if (!sound_alone) package.inputFrame(picture.data(), static_cast<unsigned>(picture.size()), video);
                const bool g711 = sound_alone || std::string(GetParam()) == "ovx" || std::string(GetParam()) == "asf";
                const ByteVector bytes = g711 ? ByteVector(320, i) : test::AdtsFrame(100, i);
                const AttributeMap sound = {{"frametype", 65},        {"encodetype", g711 ? 28 : 33},
                                            {"samplespersec", 48000}, {"bitspersample", 16},
                                            {"channels", 2},          {"timestamp", 1000 + 40 * i}};
                package.inputFrame(bytes.data(), static_cast<unsigned>(bytes.size()), sound);
            }
            EXPECT_TRUE(package.close());
        }
        g_plan = nullptr;
        return test::ReadFile(path);
    }

    static ByteVector WithoutWrites(const ByteVector& clean, const std::vector<size_t>& lengths, uint64_t first,
                                    uint64_t count) {
        ByteVector out;
        auto at = clean.begin();
        for (uint64_t i = 0; i < lengths.size(); ++i) {
            const auto end = at + static_cast<std::ptrdiff_t>(lengths[i]);
            if (i < first || i - first >= count) out.insert(out.end(), at, end);
            at = end;
        }
        return out;
    }

    const ScopedClock clock{1700000000};
    const test::TempFolder folder;
};

INSTANTIATE_TEST_SUITE_P(All, FileFaults,
                         testing::Values("mp4", "mov", "3gp", "mp464", "mov64", "mp4noseek", "asf", "mkv", "avi", "ovx",
                                         "flv", "wav", "fmp4", "hmp4", "xmkv", "xflv", "xts"),
                         [](const auto& key) { return std::string(key.param); });

TEST_P(FileFaults, AWriteThatFailsLosesItsBlockAlone) {
    Plan none;
    const ByteVector clean = Record(none);
    ASSERT_GT(none.writes, 1u);
    uint64_t points = 0;
    for (const Fault fault : {Fault::kNoSpace, Fault::kIoError}) {
        for (const uint64_t count : {uint64_t{1}, uint64_t{3}, UINT64_MAX}) {
            for (uint64_t first = 0; first < none.writes; ++first, ++points) {
                SCOPED_TRACE(testing::Message() << "write " << first << ", " << count << " of them");
                Plan plan = Failing(fault, first, count);
                const ByteVector file = Record(plan);
                EXPECT_EQ(plan.writes, none.writes);
                if (OnlyForward()) {
                    // Blocks that follow one another: those behind a lost one move up.
                    ASSERT_EQ(file, WithoutWrites(clean, none.lengths, first, count));
                    continue;
                }
                ASSERT_LE(file.size(), clean.size());
                std::vector<bool> lost(clean.size());
                for (const Write& write : plan.lost) {
                    for (size_t i = 0; i < write.length; ++i)
                        lost[static_cast<size_t>(write.at) + i] = true;
                }
                for (size_t i = 0; i < clean.size(); ++i) {
                    if (lost[i]) continue;
                    // What nobody wrote reads as zero, and is not there at the end.
                    ASSERT_EQ(i < file.size() ? file[i] : 0, clean[i]) << "at " << i;
                }
            }
        }
    }
    std::printf("%-10s writes %3llu  points %4llu\n", GetParam(), static_cast<unsigned long long>(none.writes),
                static_cast<unsigned long long>(points));
}

TEST_P(FileFaults, InterruptedAndShortWritesAreMadeUpFor) {
    Plan none;
    const ByteVector clean = Record(none);
    for (const Fault fault : {Fault::kInterrupted, Fault::kShort}) {
        for (const uint64_t count : {uint64_t{1}, uint64_t{3}}) {
            for (uint64_t first = 0; first < none.writes; ++first) {
                Plan plan = Failing(fault, first, count);
                ASSERT_EQ(Record(plan), clean) << "write " << first;
            }
        }
    }
}

TEST_P(FileFaults, ACloseThatFailsTakesNothingAway) {
    Plan none;
    const ByteVector clean = Record(none);
    for (const int error : {EIO, EINTR, ENOSPC}) {
        Plan plan;
        plan.close_error = error;
        EXPECT_EQ(Record(plan), clean) << error;
    }
}

// A target that can't be sought, such as a pipe: what follows the bytes before is written, what goes elsewhere is lost.
TEST_P(FileFaults, WithoutPositionsTheBlocksThatFollowOneAnotherAreWritten) {
    Plan none;
    std::vector<Write> writes;
    none.keep = &writes;
    Record(none);
    ByteVector expected;
    for (const Write& write : writes) {
        if (static_cast<size_t>(write.at) == expected.size()) {
            expected.insert(expected.end(), write.bytes.begin(), write.bytes.end());
        }
    }
    ASSERT_GT(expected.size(), 100u);
    Plan plan;
    plan.no_positions = true;
    EXPECT_EQ(Record(plan), expected);
}

// A limit on the size of files, in a process of its own: it must neither die of the signal nor see it.
TEST_P(FileFaults, ALimitOnTheSizeOfFilesKillsNobody) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        const rlimit limit{2000, 2000};
        setrlimit(RLIMIT_FSIZE, &limit);
        Plan plan;
        const ByteVector file = Record(plan);
        _exit(file.size() == 2000 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

}  // namespace
