// Recordings with something wrong about them, made byte by byte, and what repair and pack make of those.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "support/hex.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::ByteVector;
using test::Contains;
using test::FilesIn;
using test::Muxora;
using test::operator+;

ByteVector Little(uint64_t value, size_t bytes) {
    ByteVector out;
    for (size_t i = 0; i < bytes; ++i)
        out.push_back(static_cast<uint8_t>(value >> (8 * i) & 0xFF));
    return out;
}

// ISO 3309, a bit at a time.
uint32_t Crc(const ByteVector& bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

// As it stands beside a recording: what follows the media, and where.
ByteVector Snapshot(uint32_t format, uint64_t position, const ByteVector& index) {
    const ByteVector head = test::Text("MXSNAP01") + Little(format, 4) + Little(Crc(index), 4) + Little(position, 8) +
                            Little(index.size(), 8);
    return head + Little(Crc(head), 4) + index;
}

const ByteVector kFileType = Bytes("00 00 00 10 66 74 79 70 69 73 6F 6D 00 00 00 00");
const ByteVector kIndex = Bytes("00 00 00 0C 6D 6F 6F 76 01 02 03 04");

class Crafted : public testing::Test {
  protected:
    Crafted() : folder(test::FreshDirectory("crafted")), path(folder + "/x.mp4") {}

    void Recording(const ByteVector& bytes) const { test::WriteFile(path, bytes); }
    void SnapshotIs(uint32_t format, uint64_t position) const {
        test::WriteFile(path + ".snapshot", Snapshot(format, position, kIndex));
    }
    void ExpectRefused(const std::string& says) const {
        const auto before = test::ReadFile(path);
        const auto run = Muxora({"repair", path});
        EXPECT_EQ(run.exit_code, 1);
        EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
        EXPECT_TRUE(Contains(run.err, says)) << run.err;
        EXPECT_EQ(test::ReadFile(path), before);
    }

    std::string folder;
    std::string path;
};

// ISO/IEC 14496-12 4.2: a box of 32 bits has its size in front, one of 64 bits behind its type.
TEST_F(Crafted, TheMediaBoxGetsItsSize) {
    Recording(kFileType + Bytes("00 00 00 08 6D 64 61 74 AA BB CC DD EE"));
    SnapshotIs(0, 16 + 8 + 4);
    const auto small = Muxora({"repair", path, "--json"});
    ASSERT_EQ(small.exit_code, 0) << small.err;
    EXPECT_EQ(small.out, "{\"file\":\"" + path + "\",\"state\":\"repaired\",\"bytes\":40,\"cut\":1}\n");
    EXPECT_EQ(test::ReadFile(path), kFileType + Bytes("00 00 00 0C 6D 64 61 74 AA BB CC DD") + kIndex);
    const auto again = Muxora({"repair", path, "--json"});
    EXPECT_EQ(again.out, "{\"file\":\"" + path + "\",\"state\":\"complete\",\"bytes\":40,\"cut\":0}\n");
    EXPECT_EQ(Muxora({"repair", path, "--quiet"}).out, "");

    Recording(kFileType + Bytes("00 00 00 01 6D 64 61 74 00 00 00 00 00 00 00 10 AA BB CC DD EE FF"));
    SnapshotIs(14, 16 + 16 + 5);
    const auto large = Muxora({"repair", path, "--quiet"});
    ASSERT_EQ(large.exit_code, 0) << large.err;
    EXPECT_EQ(large.out, "");
    EXPECT_EQ(test::ReadFile(path),
              kFileType + Bytes("00 00 00 01 6D 64 61 74 00 00 00 00 00 00 00 15 AA BB CC DD EE") + kIndex);
    EXPECT_EQ(FilesIn(folder), std::vector<std::string>{"x.mp4"});

    // The form that never goes back has finished boxes; an index in the room in front gives way to the one behind.
    Recording(kFileType + Bytes("00 00 00 08 6D 6F 6F 76 00 00 00 0A 6D 64 61 74 AA BB CC"));
    SnapshotIs(12, 16 + 8 + 10);
    ASSERT_EQ(Muxora({"repair", path}).exit_code, 0);
    EXPECT_EQ(test::ReadFile(path),
              kFileType + Bytes("00 00 00 08 66 72 65 65 00 00 00 0A 6D 64 61 74 AA BB") + kIndex);
}

TEST_F(Crafted, WhatDoesNotFitIsLeftAlone) {
    const ByteVector media = kFileType + Bytes("00 00 00 08 6D 64 61 74 AA BB");
    Recording(media);
    SnapshotIs(0, 23);  // within the box's head
    ExpectRefused("belongs to another recording: it describes 23 bytes, ");
    SnapshotIs(0, 27);
    ExpectRefused("belongs to another recording: it describes 27 bytes, " + path + " has 26");
    test::WriteFile(path + ".snapshot", {});
    ExpectRefused("x.mp4.snapshot is no whole snapshot");
    SnapshotIs(0, 20);
    for (const ByteVector& other :
         {kFileType, kFileType + Bytes("00 00 00 04 6D 64 61 74"), kFileType + Bytes("00 00 00 40 6D 64 61 74"),
          kFileType + Bytes("00 00 00 01 6D 64"), kFileType + Bytes("00 00 00 01 6D 64 61 74 00 00")}) {
        Recording(other);
        ExpectRefused("has no media data in front; is it an MP4 or MOV recording?");
    }
    fs::remove(path + ".snapshot");
    Recording(media);
    ExpectRefused("has no index, and there is no " + path + ".snapshot");
    Recording({});
    ExpectRefused("has no index, and there is no ");
    fs::rename(path, folder + "/x.bin");
    path = folder + "/x.bin";
    ExpectRefused("x.bin is ");
    path = folder;
    const auto run = Muxora({"repair", folder});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(run.err, "muxora: cannot open " + folder + ": Is a directory\n");
    const auto json = Muxora({"repair", folder + "/none.mp4", "--json"});
    EXPECT_EQ(json.exit_code, 1);
    EXPECT_EQ(json.err,
              "{\"error\":\"cannot open " + folder + "/none.mp4: No such file or directory\",\"exit_code\":1}\n");
}

// A file of holes: it takes no room on the disk.
TEST_F(Crafted, MediaPastFourGigabytesDoNotFitIntoASmallBox) {
    Recording(kFileType + Bytes("00 00 00 08 6D 64 61 74"));
    constexpr uint64_t kSize = (uint64_t{4} << 30) + 100;
    std::error_code error;
    fs::resize_file(path, kSize, error);
    ASSERT_FALSE(error) << error.message();
    SnapshotIs(0, kSize);
    const auto run = Muxora({"repair", path});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.err, "the media data of " + path + " is longer than this file can say")) << run.err;
    EXPECT_EQ(fs::file_size(path), kSize) << "what cannot be completed stays as it is";
}

// A hybrid MP4 that was killed plays, and its index is worth more than a second run of the same command.
TEST(Recordings, AKilledHybridIsNotReplaced) {
    const std::string folder = test::FreshDirectory("killed_hybrid");
    const std::string path = folder + "/x.mp4";
    test::ClipSpec spec;
    spec.container = "mp4";
    spec.seconds = 8;
    const std::string clip = test::MakeClip(spec);
    const auto fragments = [&] {
        const auto bytes = test::ReadFile(path);
        const std::string text(bytes.begin(), bytes.end());
        size_t count = 0;
        for (size_t at = 0; (at = text.find("moof", at)) != std::string::npos; ++at)
            ++count;
        return count;
    };
    test::Background recording({MUXORA_TOOL, "pack", clip, "-o", path, "--realtime", "--backup", "0.5"});
    for (int i = 0; i < 2000 && !(fs::exists(path) && fragments() > 2); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    recording.Signal(SIGKILL);
    ASSERT_EQ(recording.Wait(), 128 + SIGKILL);
    const auto bytes = test::ReadFile(path);
    for (const auto& words : std::vector<std::vector<std::string>>{{"pack", clip, "-o", path, "--backup", "1"},
                                                                   {"pack", clip, "-o", path},
                                                                   {"pack", clip, "-o", path, "-f", "mp4"}}) {
        const auto run = Muxora(words);
        EXPECT_EQ(run.exit_code, 1);
        EXPECT_EQ(run.err, "muxora: " + path + " was cut off before: complete it with 'muxora repair " + path +
                               "', or remove it\n");
        EXPECT_EQ(test::ReadFile(path), bytes);
    }
    // Complete, it is a file as any other.
    ASSERT_EQ(Muxora({"repair", path, "--quiet"}).exit_code, 0);
    EXPECT_GT(test::Pictures(path).size(), 10u);
    EXPECT_EQ(Muxora({"pack", clip, "-o", path, "--quiet"}).exit_code, 0);
    EXPECT_EQ(test::Pictures(path).size(), 200u);
    // Cut off ahead of its first fragment there is nothing in it.
    auto head = bytes;
    head.resize(600);
    test::WriteFile(path, head);
    EXPECT_EQ(Muxora({"pack", clip, "-o", path, "--quiet"}).exit_code, 0);
    EXPECT_EQ(FilesIn(folder), std::vector<std::string>{"x.mp4"});
}

TEST(Recordings, SnapshotsThatCannotBeWrittenAreTold) {
    const std::string folder = test::FreshDirectory("no_snapshots");
    const std::string path = folder + "/x.mp4";
    test::ClipSpec spec;
    spec.container = "mp4";
    spec.seconds = 8;
    test::Background recording({"sh", "-c",
                                std::string("exec " MUXORA_TOOL " pack ") + test::MakeClip(spec) + " -o " + path +
                                    " -f mp4 --realtime --backup 0.2 2> " + folder + "/said"});
    // Something else takes the snapshot's name.
    for (int i = 0; i < 2000 && !fs::exists(path + ".snapshot"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    while (!fs::is_directory(path + ".snapshot")) {
        std::error_code ignored;
        fs::remove(path + ".snapshot", ignored);
        fs::create_directory(path + ".snapshot", ignored);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(700));  // some periods
    recording.Signal(SIGINT);
    // The recording is whole; that it was not as safe as asked for is a failure all the same.
    EXPECT_EQ(recording.Wait(), 1);
    const auto said = test::ReadFile(folder + "/said");
    EXPECT_TRUE(Contains(std::string(said.begin(), said.end()), "x.mp4.snapshot"))
        << std::string(said.begin(), said.end());
    EXPECT_GT(test::Pictures(path).size(), 3u);
}

// A limit on the size of files stands for a full disk.
TEST(Recordings, AFullDiskLeavesWhatPlaysAndNothingElse) {
    const std::string folder = test::FreshDirectory("full_disk");
    test::ClipSpec spec;
    spec.container = "mov";
    spec.audio = "pcm";
    spec.channels = 2;
    spec.seconds = 30;
    spec.width = 64;
    spec.height = 48;
    const auto pack = [&](const std::string& path, std::vector<std::string> more) {
        more.insert(more.begin(),
                    {"prlimit", "--fsize=4000000", MUXORA_TOOL, "pack", test::MakeClip(spec), "-o", path});
        return test::Run(more);
    };
    const std::string path = folder + "/x.mkv";
    const auto recording = pack(path, {"--backup", "1"});
    EXPECT_EQ(recording.exit_code, 1);
    EXPECT_TRUE(test::IsOneLine(recording.err)) << recording.err;
    EXPECT_TRUE(Contains(recording.err, "; what was recorded stays and plays: " + path)) << recording.err;
    EXPECT_GT(test::DecodeVideo(path).Hashes().size(), 250u);
    fs::remove(path);
    for (const std::string key : {"xmkv", "avi"}) {
        const auto run = pack(folder + "/y", {"-f", key, "--json"});
        EXPECT_EQ(run.exit_code, 1) << key;
        EXPECT_TRUE(FilesIn(folder).empty()) << key;
        EXPECT_EQ(run.err.rfind("{\"error\":\"cannot write " + folder + "/y: ", 0), 0u) << run.err;
    }
}

}  // namespace
