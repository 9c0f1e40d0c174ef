// The file component as a caller sees it, through the public headers alone.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "Muxora.h"
#include "MuxoraAPI.h"
#include "support/allocation_counter.h"
#include "support/hex.h"
#include "support/slot.h"
#include "support/temp_folder.h"

namespace {

using Basalt::getLastError;
using Basalt::IFactoryUnknown;
using Basalt::setLastError;
using Basalt::TSharedPtr;
using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CFilePackage;
using Orvane::Muxora::IFilePackage;
using Orvane::Muxora::IMuxoraData;
using test::Bytes;
using test::ByteVector;
using test::operator+;
using test::Text;

constexpr uint32_t kNothing = 0xABCD;  // a last error that nobody sets

// An H.264 key frame: SPS, PPS and a slice.
const ByteVector kKeyFrame = Bytes("00 00 00 01 67 4D 00 1E AB 00 00 00 01 68 EE 3C 80 00 00 00 01 65 88 84 21 A0 33");

AttributeMap Video(long long sub_type = 1) {
    return {{"frametype", 86}, {"framesubtype", sub_type}, {"encodetype", 2}, {"width", 640}, {"height", 480},
            {"rate", 25}};
}

AttributeMap Pcm() {
    return {{"frametype", 65}, {"framesubtype", 0}, {"encodetype", 30}, {"samplespersec", 8000}};
}

// What a WAV of the frames "abcd" (left out) and "efgh" holds.
ByteVector Wav() {
    return Text("RIFF") + Bytes("28 00 00 00") + Text("WAVEfmt ") +
           Bytes("10 00 00 00 01 00 01 00 40 1F 00 00 80 3E 00 00 02 00 10 00") + Text("data") + Bytes("04 00 00 00") +
           Text("efgh");
}

// Takes what a write function is given.
struct Target {
    struct Block {
        AttributeMap place;
        ByteVector data;
    };
    std::vector<Block> blocks;
    ByteVector file;

    IFilePackage::WriteFunction Function() {
        return [this](AttributeMap& place, IMuxoraData& data) {
            const auto* bytes = reinterpret_cast<const uint8_t*>(data.getBuffer());
            const Block block{place, {bytes, bytes + data.getLen()}};
            const auto at = place["offsettype"] == 0 ? static_cast<size_t>(place["fileoffset"]) : file.size();
            if (file.size() < at + block.data.size()) file.resize(at + block.data.size());
            std::copy(block.data.begin(), block.data.end(), file.begin() + static_cast<std::ptrdiff_t>(at));
            blocks.push_back(block);
            return false;  // not read by anyone
        };
    }
};

class FileComponent : public testing::Test {
  protected:
    void SetUp() override { setLastError(kNothing); }

    // A copy of the frame: Matroska writes into it.
    static bool Give(IFilePackage& package, ByteVector data, const AttributeMap& attributes) {
        return package.inputFrame(data.data(), static_cast<unsigned>(data.size()), attributes);
    }
    static void GiveWav(IFilePackage& package) {
        EXPECT_TRUE(Give(package, Text("abcd"), Pcm()));
        EXPECT_TRUE(Give(package, Text("efgh"), Pcm()));
    }

    test::TempFolder folder;
    const std::string path = folder.Path("out");
    Target target;
};

TEST_F(FileComponent, WritesAFile) {
    CFilePackage package("WAV");
    ASSERT_TRUE(package.open(path.c_str()));
    // The head is there before the first frame.
    EXPECT_EQ(std::filesystem::file_size(path), 44u);
    GiveWav(package);
    EXPECT_TRUE(package.close());
    EXPECT_EQ(test::ReadFile(path), Wav());
    EXPECT_EQ(getLastError(), kNothing);
}

TEST_F(FileComponent, OpeningEmptiesAFileThatIsThere) {
    {
        Basalt::CLfsFile file;
        ASSERT_TRUE(file.open(path.c_str(), 4225));
        const ByteVector junk(1000, 0xEE);
        file.write(junk.data(), junk.size());
    }
    CFilePackage package("wav");
    ASSERT_TRUE(package.open(path.c_str()));
    GiveWav(package);
    package.close();
    EXPECT_EQ(test::ReadFile(path), Wav());
}

TEST_F(FileComponent, WritesThroughAFunction) {
    CFilePackage package("wav");
    ASSERT_TRUE(package.open(target.Function()));
    GiveWav(package);
    EXPECT_TRUE(package.close());
    EXPECT_EQ(target.file, Wav());
    // Head, head again in the place of the first frame, second frame, head with the sizes.
    ASSERT_EQ(target.blocks.size(), 4u);
    EXPECT_EQ(target.blocks[2].place, (AttributeMap{{"fileoffset", 44}, {"offsettype", 0}}));
    EXPECT_EQ(target.blocks[3].place, (AttributeMap{{"fileoffset", 0}, {"offsettype", 0}}));
}

TEST_F(FileComponent, OvxBlocksHaveNoPosition) {
    CFilePackage package;
    ASSERT_TRUE(package.open(target.Function()));
    EXPECT_TRUE(target.blocks.empty());
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(Give(package, kKeyFrame, Video()));
    EXPECT_TRUE(package.close());
    ASSERT_EQ(target.blocks.size(), 3u);
    for (const Target::Block& block : target.blocks) {
        EXPECT_EQ(block.place, (AttributeMap{{"fileoffset", 0}, {"offsettype", 1}}));
        EXPECT_EQ(test::Slice(block.data, 0, 4), Text("ORVX"));
    }
}

TEST_F(FileComponent, OvxUnitsFollowEachOtherInAFile) {
    CFilePackage package("ovx");
    ASSERT_TRUE(package.open(path.c_str()));
    const size_t unit = 24 + 16 + kKeyFrame.size() + 8;
    for (size_t i = 1; i <= 3; ++i) {
        EXPECT_TRUE(Give(package, kKeyFrame, Video()));
        EXPECT_EQ(std::filesystem::file_size(path), i * unit);
    }
    EXPECT_TRUE(package.close());
    const ByteVector file = test::ReadFile(path);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(test::Slice(file, i * unit, 4), Text("ORVX"));
}

TEST_F(FileComponent, KnowsEachKeyInTwoSpellings) {
    for (const char* key :
         {"MOV64", "mov64", "MP464", "mp464", "MP4NOSEEK", "mp4noseek", "MP4", "mp4", "3GP", "3gp", "MOV", "mov",
          "ASF",   "asf",   "MKV",   "mkv",   "AVI",       "avi",       "OVX", "ovx", "FLV", "flv", "WAV", "wav"}) {
        CFilePackage package(key);
        EXPECT_TRUE(package.open(Target().Function())) << key;
        const void* table = nullptr;
        int count = 0;
        EXPECT_TRUE(package.getPacketCapacity(Orvane::Muxora::CAPACITY_AUDIO, &table, &count)) << key;
        EXPECT_GT(count, 0) << key;
    }
}

TEST_F(FileComponent, AnUnknownKeyMakesAnObjectThatFails) {
    for (const char* key : {"Mp4", "", "ts", "rtp", "Wav", "mp4 "}) {
        CFilePackage package(key);
        const auto fails_with = [](bool result, uint32_t error) {
            const bool failed = !result && getLastError() == error;
            setLastError(kNothing);
            return failed;
        };
        EXPECT_TRUE(fails_with(package.open(path.c_str()), 1)) << key;
        EXPECT_TRUE(fails_with(package.open(static_cast<const char*>(nullptr)), 1));
        EXPECT_TRUE(fails_with(package.open(target.Function()), 1));
        EXPECT_TRUE(fails_with(package.open(IFilePackage::WriteFunction()), kNothing));
        EXPECT_TRUE(fails_with(Give(package, kKeyFrame, Video()), 1));
        EXPECT_TRUE(fails_with(package.close(), 1));
        TSharedPtr<IMuxoraData> out;
        EXPECT_TRUE(fails_with(package.getbackup(out, {}), kNothing));
        const void* table = nullptr;
        int count = 0;
        EXPECT_TRUE(fails_with(package.getPacketCapacity(Orvane::Muxora::CAPACITY_VIDEO, &table, &count), kNothing));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileComponent, RefusesTargetsThatAreNone) {
    CFilePackage package("wav");
    EXPECT_FALSE(package.open(IFilePackage::WriteFunction()));
    EXPECT_EQ(getLastError(), kNothing);
    EXPECT_FALSE(package.open(static_cast<const char*>(nullptr)));
    EXPECT_EQ(getLastError(), 5u);
    setLastError(kNothing);
    EXPECT_FALSE(package.open(folder.Path("missing/out").c_str()));
    EXPECT_EQ(getLastError(), 5u);
    setLastError(kNothing);
    EXPECT_TRUE(package.close());
    EXPECT_EQ(getLastError(), kNothing);
    EXPECT_FALSE(std::filesystem::exists(folder.Path("missing")));
}

TEST_F(FileComponent, AFrameThatIsRefusedLeavesTheFileOpen) {
    CFilePackage package("wav");
    ASSERT_TRUE(package.open(path.c_str()));
    EXPECT_TRUE(Give(package, Text("abcd"), Pcm()));
    EXPECT_FALSE(Give(package, kKeyFrame, Video()));
    EXPECT_EQ(getLastError(), 4u);
    setLastError(kNothing);
    EXPECT_FALSE(package.inputFrame(nullptr, 4, Pcm()));
    EXPECT_EQ(getLastError(), 4u);
    EXPECT_TRUE(Give(package, Text("efgh"), Pcm()));
    EXPECT_TRUE(package.close());
    EXPECT_EQ(test::ReadFile(path), Wav());
}

TEST_F(FileComponent, ClosingTwiceIsSafe) {
    for (const char* key :
         {"MOV64", "MP464", "MP4NOSEEK", "MP4", "3GP", "MOV", "ASF", "MKV", "AVI", "OVX", "FLV", "WAV"}) {
        CFilePackage package(key);
        ASSERT_TRUE(package.open(path.c_str())) << key;
        Give(package, kKeyFrame, Video());
        Give(package, kKeyFrame, Video(2));
        setLastError(kNothing);
        EXPECT_TRUE(package.close()) << key;
        const ByteVector once = test::ReadFile(path);
        EXPECT_TRUE(package.close()) << key;
        // The file was closed: what the second tail makes goes nowhere.
        EXPECT_EQ(test::ReadFile(path), once) << key;
        EXPECT_EQ(getLastError(), kNothing) << key;
    }
}

TEST_F(FileComponent, AnyOrderOfCallsIsSafe) {
    for (const char* key :
         {"MOV64", "MP464", "MP4NOSEEK", "MP4", "3GP", "MOV", "ASF", "MKV", "AVI", "OVX", "FLV", "WAV"}) {
        CFilePackage package(key);
        TSharedPtr<IMuxoraData> out;
        Give(package, kKeyFrame, Video());
        EXPECT_TRUE(package.close());
        package.getbackup(out, {});
        EXPECT_TRUE(package.open(path.c_str()));
        EXPECT_TRUE(package.open(path.c_str()));
        Give(package, kKeyFrame, Video());
        EXPECT_TRUE(package.close());
        Give(package, kKeyFrame, Video());
    }
}

TEST_F(FileComponent, TheFileWinsOverTheFunction) {
    CFilePackage package("wav");
    ASSERT_TRUE(package.open(target.Function()));
    EXPECT_EQ(target.blocks.size(), 1u);
    ASSERT_TRUE(package.open(path.c_str()));
    GiveWav(package);
    EXPECT_TRUE(package.close());
    EXPECT_EQ(target.blocks.size(), 1u);
    EXPECT_GT(std::filesystem::file_size(path), 44u);
    // With the file closed the function is the target again.
    EXPECT_TRUE(package.close());
    EXPECT_EQ(target.blocks.size(), 2u);
}

TEST_F(FileComponent, DroppedWithoutCloseItWritesNoTail) {
    {
        CFilePackage package("wav");
        ASSERT_TRUE(package.open(path.c_str()));
        GiveWav(package);
    }
    const ByteVector file = test::ReadFile(path);
    EXPECT_EQ(file.size(), 48u);
    EXPECT_NE(file, Wav());
}

TEST_F(FileComponent, NoSeekBlocksNeverGoBack) {
    CFilePackage package("MP4NOSEEK");
    ASSERT_TRUE(package.open(target.Function()));
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(Give(package, kKeyFrame, Video()));
    EXPECT_TRUE(package.close());
    ASSERT_GT(target.blocks.size(), 5u);
    long long end = 0;
    for (const Target::Block& block : target.blocks) {
        EXPECT_EQ(block.place.at("offsettype"), 0);
        EXPECT_EQ(block.place.at("fileoffset"), end);
        end += static_cast<long long>(block.data.size());
    }
}

TEST_F(FileComponent, BackupOfAnMp4) {
    CFilePackage package("MP4");
    ASSERT_TRUE(package.open(target.Function()));
    TSharedPtr<IMuxoraData> out;
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(Give(package, kKeyFrame, Video()));
    const AttributeMap info;
    ASSERT_TRUE(package.getbackup(out, info));
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_EQ(info.at("seektype"), 0);
    // Without a reserved gap the index goes behind the media.
    EXPECT_EQ(info.at("seekpos"), static_cast<long long>(target.file.size()));
    const auto* index = reinterpret_cast<const uint8_t*>(out->getBuffer());
    ASSERT_GT(out->getLen(), 8u);
    EXPECT_EQ(std::memcmp(index + 4, "moov", 4), 0);
    EXPECT_EQ(getLastError(), kNothing);
    EXPECT_TRUE(package.close());
}

TEST_F(FileComponent, OtherFormatsHaveNoBackup) {
    for (const char* key : {"AVI", "OVX", "ASF", "FLV", "MKV", "WAV"}) {
        CFilePackage package(key);
        ASSERT_TRUE(package.open(target.Function()));
        Give(package, kKeyFrame, Video());
        TSharedPtr<IMuxoraData> out;
        const AttributeMap info;
        setLastError(kNothing);
        EXPECT_FALSE(package.getbackup(out, info)) << key;
        EXPECT_EQ(out, nullptr) << key;
        EXPECT_TRUE(info.empty()) << key;
        EXPECT_EQ(getLastError(), kNothing) << key;
    }
}

TEST_F(FileComponent, AFullDiskGoesUnnoticed) {
    for (const char* key : {"MP464", "MP4NOSEEK", "MP4", "ASF", "MKV", "AVI", "OVX", "FLV", "WAV"}) {
        CFilePackage package(key);
        ASSERT_TRUE(package.open("/dev/full")) << key;
        Give(package, kKeyFrame, Video());
        const AttributeMap attributes = std::strcmp(key, "WAV") == 0 ? Pcm() : Video();
        EXPECT_TRUE(Give(package, kKeyFrame, attributes)) << key;
        EXPECT_TRUE(package.close()) << key;
    }
}

TEST_F(FileComponent, AnExceptionOfTheFunctionEndsWithItsBlock) {
    CFilePackage package("wav");
    int calls = 0;
    ASSERT_TRUE(package.open([&calls](AttributeMap&, IMuxoraData&) -> bool {
        ++calls;
        throw std::runtime_error("no more room");
    }));
    GiveWav(package);
    EXPECT_TRUE(package.close());
    EXPECT_EQ(calls, 4);
}

TEST_F(FileComponent, WithoutMemory) {
    CFilePackage package("MP4");
    ASSERT_TRUE(package.open(target.Function()));
    ASSERT_TRUE(Give(package, kKeyFrame, Video()));
    TSharedPtr<IMuxoraData> out;
    const AttributeMap info;
    // From each allocation on: what does not come to its end says so.
    bool whole = false;
    for (uint64_t failing = 0; !whole; ++failing) {
        ASSERT_LT(failing, 100u);
        const test::AllocationCounter allocations;
        const test::FailingAllocations failure(failing);
        const bool result = package.getbackup(out, info);
        whole = allocations.Count() <= failing;
        EXPECT_EQ(result, whole) << failing;
    }
}

TEST_F(FileComponent, CapacitiesAreInPublicNumbers) {
    CFilePackage package("wav");
    const void* table = &package;
    int count = 77;
    EXPECT_TRUE(package.getPacketCapacity(Orvane::Muxora::CAPACITY_VIDEO, &table, &count));
    EXPECT_EQ(count, 0);
    EXPECT_EQ(table, &package);
    ASSERT_TRUE(package.getPacketCapacity(Orvane::Muxora::CAPACITY_AUDIO, &table, &count));
    ASSERT_EQ(count, 2);
    EXPECT_EQ(static_cast<const MXCapacityEntry*>(table)[0].codec, 28u);
    EXPECT_EQ(static_cast<const MXCapacityEntry*>(table)[1].codec, 30u);
    EXPECT_FALSE(package.getPacketCapacity(static_cast<Orvane::Muxora::CapacityType>(7), &table, &count));
    EXPECT_EQ(getLastError(), 4u);
}

TEST_F(FileComponent, TellsItsVersion) {
    CFilePackage package;
    EXPECT_EQ(package.getVersion().getName(), "Application");
    EXPECT_EQ(package.getVersion().getMajor(), 1u);
}

TEST(FileInterface, HasNoOperationOfItsOwn) {
    IFilePackage base;
    const IFilePackage& constant = base;
    TSharedPtr<IMuxoraData> out;
    const AttributeMap attributes;
    const void* table = nullptr;
    int count = 0;
    const auto fails = [](bool result) {
        const bool failed = !result && getLastError() == 0x10030010;
        setLastError(0);
        return failed;
    };
    setLastError(0);
    EXPECT_TRUE(fails(base.open(Target().Function())));
    EXPECT_TRUE(fails(base.open("/tmp/x")));
    EXPECT_TRUE(fails(base.inputFrame("x", 1, attributes)));
    EXPECT_TRUE(fails(base.close()));
    EXPECT_TRUE(fails(base.getbackup(out, attributes)));
    EXPECT_TRUE(fails(constant.getPacketCapacity(Orvane::Muxora::CAPACITY_VIDEO, &table, &count)));
    using Reserved = bool (IFilePackage::*)();
    const Reserved reserved[] = {
        &IFilePackage::rev_func26, &IFilePackage::rev_func25, &IFilePackage::rev_func24, &IFilePackage::rev_func23,
        &IFilePackage::rev_func22, &IFilePackage::rev_func21, &IFilePackage::rev_func20, &IFilePackage::rev_func19,
        &IFilePackage::rev_func18, &IFilePackage::rev_func17, &IFilePackage::rev_func16, &IFilePackage::rev_func15,
        &IFilePackage::rev_func14, &IFilePackage::rev_func13, &IFilePackage::rev_func12, &IFilePackage::rev_func11,
        &IFilePackage::rev_func10, &IFilePackage::rev_func9,  &IFilePackage::rev_func8,  &IFilePackage::rev_func7,
        &IFilePackage::rev_func6,  &IFilePackage::rev_func5,  &IFilePackage::rev_func4,  &IFilePackage::rev_func3,
        &IFilePackage::rev_func2,  &IFilePackage::rev_func1};
    CFilePackage package;
    for (const Reserved operation : reserved) {
        EXPECT_TRUE(fails((base.*operation)()));
        EXPECT_TRUE(fails((package.*operation)()));
    }
}

#if defined(__GNUC__) && defined(__x86_64__)

using test::Slot;

TEST(FileInterface, TheOrderOfItsOperationsIsFixed) {
    // The destructor has the first two places.
    EXPECT_EQ(Slot(&IFilePackage::destroy), 2u);
    EXPECT_EQ(Slot(&IFilePackage::getVersion), 3u);
    EXPECT_EQ(Slot(&IFilePackage::addRef), 4u);
    EXPECT_EQ(Slot(&IFilePackage::release), 5u);
    EXPECT_EQ(Slot(static_cast<bool (IFilePackage::*)(IFilePackage::WriteFunction)>(&IFilePackage::open)), 6u);
    EXPECT_EQ(Slot(static_cast<bool (IFilePackage::*)(const char*)>(&IFilePackage::open)), 7u);
    EXPECT_EQ(Slot(&IFilePackage::inputFrame), 8u);
    EXPECT_EQ(Slot(&IFilePackage::close), 9u);
    EXPECT_EQ(Slot(&IFilePackage::getbackup), 10u);
    EXPECT_EQ(Slot(&IFilePackage::getPacketCapacity), 11u);
    EXPECT_EQ(Slot(&IFilePackage::rev_func26), 12u);
    EXPECT_EQ(Slot(&IFilePackage::rev_func1), 37u);
    EXPECT_EQ(Slot(&IFilePackage::IFactory::getName), 2u);
    EXPECT_EQ(Slot(&IFilePackage::IFactory::create), 3u);
}

#endif

TEST(FileFactory, IsFoundByNameAndMakesComponents) {
    Orvane::Muxora::initMuxoraComponentLibrary();
    IFactoryUnknown* const found = IFactoryUnknown::findFactory("FilePackage");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->getName(), "Local");
    auto* const factory = dynamic_cast<IFilePackage::IFactory*>(found);
    ASSERT_NE(factory, nullptr);
    const test::TempFolder folder;
    IFilePackage* const package = factory->create("wav");
    ASSERT_NE(package, nullptr);
    EXPECT_TRUE(package->open(folder.Path("out").c_str()));
    EXPECT_TRUE(package->close());
    EXPECT_EQ(package->release(), 0u);
    const Basalt::flex_string key = "wav";
    const test::FailingAllocations failing;
    EXPECT_EQ(factory->create(key), nullptr);
}

// A factory that leaves create() out.
struct BareFactory : IFilePackage::IFactory {
    Basalt::flex_string getName() override { return "bare"; }
};

TEST(FileFactory, TheInterfacesOwnMakesNothingAndSaysSo) {
    BareFactory factory;
    Basalt::setLastError(0);
    EXPECT_EQ(factory.create("mp4"), nullptr);
    EXPECT_EQ(Basalt::getLastError(), 0x10030010u);
}

}  // namespace
