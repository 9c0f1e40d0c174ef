// A recording as muxora pack --backup makes it: one thread writes frames into a file, another one reads the index back
// and puts it beside.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "MuxoraAPI.h"
#include "common/output.h"
#include "muxora/snapshot.h"
#include "support/frames.h"
#include "support/iso_file.h"
#include "support/iso_frames.h"

namespace {

namespace fs = std::filesystem;
using namespace Orvane::Muxora::Tools;
using test::ByteVector;
using test::IsoFile;

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (fs::temp_directory_path() / "muxora-recording-XXXXXX").string();
        if (mkdtemp(name.data()) != nullptr) path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::string Path(const char* name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

int32_t Store(const MXOutputBlock* block, void* user) {
    std::optional<uint64_t> position;
    if (block->seek_type == MX_SEEK_ABSOLUTE) position = static_cast<uint64_t>(block->offset);
    static_cast<OutputFile*>(user)->Write(block->data, block->length, position);
    return static_cast<int32_t>(block->length);
}

class Recording : public testing::TestWithParam<uint32_t> {};

TEST_P(Recording, SnapshotsAreTakenWhileItGrows) {
    const TemporaryFolder folder;
    const std::string path = folder.Path("x.mp4");
    OutputFile output(path, OutputFile::Growth::kInPlace);
    MXCreateParam param{};
    param.size = sizeof param;
    param.output = Store;
    param.user = &output;
    const MXHandle handle = MX_CreateHandle(GetParam(), &param);
    ASSERT_NE(handle, nullptr);
    ASSERT_EQ(MX_CreateHeader(handle, nullptr), 0u);
    uint32_t pictures = 0;
    {
        const Format* format = FormatByKey("mp4");
        for (const Format& one : Formats())
            format = one.number == GetParam() ? &one : format;
        SnapshotTaker taker(*format, handle, output, std::chrono::milliseconds(1));
        // As many as it takes for some snapshots; each frame is another one.
        for (uint32_t i = 0; taker.Taken() < 5 && i < 2000000; ++i) {
            ByteVector data = i % 25 == 0 ? test::KeyFrame() : test::PFrame(static_cast<uint8_t>(i));
            MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, i % 25 == 0 ? MX_SUB_I : MX_SUB_P);
            ASSERT_EQ(MX_InputFrame(handle, &frame), 0u);
            ++pictures;
        }
        taker.Stop();
        EXPECT_GE(taker.Taken(), 5u);
        EXPECT_EQ(taker.Trouble(), "");
    }
    // It describes media that are in the file, as a killed process would have left them.
    const auto snapshot = ReadSnapshot(SnapshotPath(path));
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->format, GetParam());
    EXPECT_LE(snapshot->position, fs::file_size(path));
    const IsoFile file(snapshot->index);
    const size_t in_snapshot = file.Sizes(0).size();
    EXPECT_GT(in_snapshot, 0u);
    EXPECT_LE(in_snapshot, pictures);
    EXPECT_LE(file.Offsets(0).back() + file.Sizes(0).back(), snapshot->position);
    EXPECT_EQ(MX_CreateTailer(handle, nullptr), 0u);
    MX_DestroyHandle(handle);
    RemoveSnapshot(SnapshotPath(path));
    EXPECT_FALSE(fs::exists(SnapshotPath(path)));
    output.Leave();
}

INSTANTIATE_TEST_SUITE_P(Forms, Recording, testing::Values(MX_FORMAT_MP4, MX_FORMAT_MP4_NOSEEK, MX_FORMAT_MOV_64),
                         [](const auto& form) { return "Format" + std::to_string(form.param); });

}  // namespace
