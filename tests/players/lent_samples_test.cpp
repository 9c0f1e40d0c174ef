// Large pictures that are taken out of a mapping of their file, and never read.
#include "media_input/lent_samples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

#include "media_input/file_bytes.h"
#include "support/clip.h"

namespace Orvane::Muxora::Tools {
namespace {

// Large pictures in several slices, and B pictures; the index stands in front, or behind the media.
std::string LargePictures(bool index_in_front, bool sound) {
    test::ClipSpec spec;
    spec.container = "mp4";
    spec.noise = true;
    spec.b_frames = 2;
    spec.slices = 3;
    spec.index_in_front = index_in_front;
    if (!sound) spec.audio.clear();
    return test::MakeClip(spec);
}

InputOptions Lending() {
    InputOptions options;
    options.lend_frames = true;
    return options;
}

std::vector<uint8_t> Media(const MediaFrame& frame) {
    return {frame.bytes.begin(), frame.bytes.begin() + frame.Size()};
}

TEST(LentSamples, AreTheFramesThatAreReadOtherwise) {
    for (const bool front : {false, true}) {
        for (const bool sound : {false, true}) {
            const std::string path = LargePictures(front, sound);
            const auto read = ReadAllFrames({path});
            const auto lent = ReadAllFrames({path}, Lending());
            ASSERT_EQ(lent.size(), read.size());
            for (size_t i = 0; i < read.size(); ++i) {
                ASSERT_EQ(Media(lent[i]), Media(read[i])) << path << " " << i;
                EXPECT_EQ(lent[i].sub_type, read[i].sub_type);
                EXPECT_EQ(lent[i].time_ms, read[i].time_ms);
                EXPECT_EQ(lent[i].pts, read[i].pts);
                EXPECT_EQ(lent[i].dts, read[i].dts);
            }
        }
    }
}

// What follows in the file stands behind a lent frame, and zeros behind one that was read.
bool IsLent(const MediaFrame& frame) {
    return std::any_of(frame.bytes.begin() + frame.Size(), frame.bytes.end(), [](uint8_t byte) { return byte != 0; });
}

TEST(LentSamples, AreThoseThatAreLargeAndHaveSomethingBehindThem) {
    const auto frames = ReadAllFrames({LargePictures(true, false)}, Lending());
    ASSERT_EQ(frames.size(), 50u);
    size_t lent = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
        // Key frames without parameter sets of their own are joined with those of the head.
        EXPECT_FALSE(frames[i].Size() < LentSamples::kLarge && IsLent(frames[i])) << i;
        lent += IsLent(frames[i]) ? 1 : 0;
    }
    EXPECT_GE(lent, 40u);
    EXPECT_FALSE(IsLent(frames.back()));
}

TEST(LentSamples, AreNotLentUnasked) {
    for (const MediaFrame& frame : ReadAllFrames({LargePictures(false, true)}))
        EXPECT_FALSE(IsLent(frame));
}

TEST(LentSamples, AFrameOutlivesItsInput) {
    const std::string path = LargePictures(false, true);
    const auto read = ReadAllFrames({path});
    std::vector<MediaFrame> kept;
    {
        MediaInput input({path}, Lending());
        for (MediaFrame frame; input.Next(frame);)
            kept.push_back(std::move(frame));
    }
    ASSERT_EQ(kept.size(), read.size());
    for (size_t i = 0; i < read.size(); ++i)
        ASSERT_EQ(Media(kept[i]), Media(read[i])) << i;
}

TEST(LentSamples, AFileThatBecomesShorterIsAnErrorAndNoSignal) {
    const std::string path = test::WorkPath("shrinks.mp4");
    std::filesystem::copy_file(LargePictures(true, false), path, std::filesystem::copy_options::overwrite_existing);
    MediaInput input({path}, Lending());
    MediaFrame frame;
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(input.Next(frame));
    ASSERT_TRUE(IsLent(frame));
    std::filesystem::resize_file(path, 100000);
    // The frame in hand reads as zeros, where it was not looked at before.
    EXPECT_EQ(std::accumulate(frame.bytes.begin() + 8192, frame.bytes.begin() + 65536, 0), 0);
    EXPECT_THROW(
        {
            while (input.Next(frame)) {
            }
        },
        InputError);
}

TEST(MappedFile, WhatWasWrittenIsForgottenByThePage) {
    const std::string path = test::WorkPath("mapped");
    test::WriteFile(path, std::vector<uint8_t>(40000, 7));
    const Descriptor file(path);
    const auto mapped = MappedFile::Map(file.Number(), 40000);
    ASSERT_TRUE(mapped);
    std::fill_n(mapped->Data(), 40000, uint8_t{1});
    mapped->Forget(1, 39999);  // whole pages alone
    EXPECT_EQ(mapped->Data()[0], 1);
    EXPECT_EQ(mapped->Data()[20000], 7);
    EXPECT_EQ(mapped->Data()[39999], 1);
    EXPECT_FALSE(mapped->Shrunk());
    EXPECT_EQ(test::ReadFile(path), std::vector<uint8_t>(40000, 7));
}

TEST(MappedFile, OneTooManyIsReadInstead) {
    const std::string path = test::WorkPath("many");
    test::WriteFile(path, std::vector<uint8_t>(5000, 9));
    const Descriptor file(path);
    std::vector<std::unique_ptr<MappedFile>> mapped;
    while (auto one = MappedFile::Map(file.Number(), 5000))
        mapped.push_back(std::move(one));
    EXPECT_GE(mapped.size(), 4u);
    const FileBytes read(path);
    EXPECT_EQ(std::count(read.All().begin(), read.All().end(), 9), 5000);
    mapped.pop_back();
    EXPECT_TRUE(MappedFile::Map(file.Number(), 5000));
}

}  // namespace
}  // namespace Orvane::Muxora::Tools
