// The keys by name, and what the components answer about formats.
#include <gtest/gtest.h>

#include <string>

#include "Muxora.h"
#include "support/temp_folder.h"

namespace {

using namespace Orvane::Muxora;

TEST(Keys, AreTheTexts) {
    EXPECT_STREQ(FrameKey::kFrameType, "frametype");
    EXPECT_STREQ(FrameKey::kFrameSubType, "framesubtype");
    EXPECT_STREQ(FrameKey::kEncodeType, "encodetype");
    EXPECT_STREQ(FrameKey::kTimestamp, "timestamp");
    EXPECT_STREQ(FrameKey::kYear, "year");
    EXPECT_STREQ(FrameKey::kMonth, "month");
    EXPECT_STREQ(FrameKey::kDay, "day");
    EXPECT_STREQ(FrameKey::kHour, "hour");
    EXPECT_STREQ(FrameKey::kMinute, "minute");
    EXPECT_STREQ(FrameKey::kSecond, "second");
    EXPECT_STREQ(FrameKey::kWidth, "width");
    EXPECT_STREQ(FrameKey::kHeight, "height");
    EXPECT_STREQ(FrameKey::kRate, "rate");
    EXPECT_STREQ(FrameKey::kDeinterlace, "deinterlace");
    EXPECT_STREQ(FrameKey::kSamplesPerSec, "samplespersec");
    EXPECT_STREQ(FrameKey::kChannels, "channels");
    EXPECT_STREQ(FrameKey::kBitsPerSample, "bitspersample");
    EXPECT_STREQ(FrameKey::kBitRate, "bitrate");
    EXPECT_STREQ(FrameKey::kBlockColumns, "n_slice");
    EXPECT_STREQ(FrameKey::kBlockRows, "m_slice");
    EXPECT_STREQ(FrameKey::kBlockLeft, "blockpos_left_");
    EXPECT_STREQ(FrameKey::kBlockTop, "blockpos_top_");
    EXPECT_STREQ(FrameKey::kBlockRight, "blockpos_right_");
    EXPECT_STREQ(FrameKey::kBlockBottom, "blockpos_bottom_");
    EXPECT_STREQ(FrameKey::kBlockOffset, "blockdata_offset_");
    EXPECT_STREQ(FrameKey::kRotationAngle, "rotationangle");
    EXPECT_STREQ(FrameKey::kTotalChannels, "matotalchannels");
    EXPECT_STREQ(FrameKey::kCurrentChannel, "macurchannel");
    EXPECT_STREQ(FrameKey::kCompanyType, "tpcompanytype");
    EXPECT_STREQ(FrameKey::kStreamHeaderLength, "tpstreamheaderlen");
    EXPECT_STREQ(BlockKey::kFileOffset, "fileoffset");
    EXPECT_STREQ(BlockKey::kOffsetType, "offsettype");
    EXPECT_STREQ(BlockKey::kSeekPosition, "seekpos");
    EXPECT_STREQ(BlockKey::kSeekType, "seektype");
}

// A key that the stream knows is read back as it was set; one that it does not know leaves the value alone.
TEST(Keys, OfParametersReachTheStream) {
    CMuxora stream(FormatKey::kRtp);
    for (const char* key :
         {ParamKey::kMaxPacketLength, ParamKey::kSequenceNumber, ParamKey::kTimestamp, ParamKey::kSsrc,
          ParamKey::kAudioSample, ParamKey::kPayloadType, ParamKey::kOutputAll, ParamKey::kAudioPayloadType}) {
        long long value = -1;
        EXPECT_TRUE(stream.setParam(key, 96));
        EXPECT_TRUE(stream.getParam(key, value));
        EXPECT_EQ(value, 96) << key;
    }
    EXPECT_FALSE(stream.setExtInfo(DataKey::kCustomData, nullptr, 0));
    EXPECT_FALSE(stream.setExtInfo(DataKey::kAudioCustomData, nullptr, 0));
    EXPECT_FALSE(stream.setExtInfo(DataKey::kExtensionData, "abcd", 4));
    EXPECT_TRUE(stream.setExtInfo("another", nullptr, 0));
}

TEST(Keys, OfFormatsAreSupportedWhereTheyBelong) {
    using namespace FormatKey;
    for (const char* key : {kMp4, kMov, k3gp, kMp4_64, kMov_64, kMp4NoSeek, kAvi, kMkv, kWav}) {
        EXPECT_TRUE(CFilePackage::supports(key)) << key;
        EXPECT_FALSE(CMuxora::supports(key)) << key;
    }
    for (const char* key : {kRtp, kTs, kPs, kPsOv, kPsGays, kPsGd}) {
        EXPECT_TRUE(CMuxora::supports(key)) << key;
        EXPECT_FALSE(CFilePackage::supports(key)) << key;
    }
    for (const char* key : {kAsf, kFlv, kOvx, kFmp4, kXmkv, kXflv, kXts, "ASF", "OVX"}) {
        EXPECT_TRUE(CMuxora::supports(key)) << key;
        EXPECT_TRUE(CFilePackage::supports(key)) << key;
    }
    for (const char* key : {"", "Mp4", "mp4 ", "none"}) {
        EXPECT_FALSE(CMuxora::supports(key)) << key;
        EXPECT_FALSE(CFilePackage::supports(key)) << key;
    }
}

TEST(Keys, AFileOpensByAString) {
    const test::TempFolder folder;
    CFilePackage file(FormatKey::kMp4);
    EXPECT_TRUE(file.open(std::string(folder.Path("a.mp4"))));
    EXPECT_TRUE(file.close());
    CFilePackage other(FormatKey::kMp4);
    IFilePackage& base = other;
    EXPECT_FALSE(base.open(std::string(folder.Path("no/such/folder.mp4"))));
    EXPECT_EQ(Basalt::getLastError(), MUXORA_CANNOT_OPEN);
}

}  // namespace
