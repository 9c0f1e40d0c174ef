#include "containers/avi_header.h"

#include <gtest/gtest.h>

#include <utility>

namespace Orvane::Muxora {
namespace {

TEST(AviRecord, ADifferenceInSizeIsSaid) {
    const std::pair<AviRecord, const char*> cases[] = {
        {AviRecord::HeaderList, "WriteHeaderList Error! HeaderList Size = 7, Actual Size = 5 \n"},
        {AviRecord::MainHeader, "WriteMainHeader Error! MainHeader Size = 7, Actual Size = 5 \n"},
        {AviRecord::Junk, "WriteJunk Error! Junk Size = 7, Actual Size = 5 \n"},
        {AviRecord::VideoStreamList, "WriteVideoStreamList Error! VideoStream Size = 7, Actual Size = 5 \n"},
        {AviRecord::AudioStreamList, "WriteAudioStreamList Error! AudioStream Size = 7, Actual Size = 5 \n"},
        {AviRecord::StreamHeader, "WriteStreamHeader Error! StreamHeader Size = 7, Actual Size = 5 \n"},
        {AviRecord::BitmapInfo, "WriteBitmapInfo Error! Bitmap Size = 7, Actual Size = 5 \n"},
        {AviRecord::Waveformat, "WriteWaveformat Error! WaveFormat Size = 7, Actual Size = 5 \n"}};
    for (const auto& [record, text] : cases) {
        testing::internal::CaptureStdout();
        CheckAviSize(record, 7, 7);
        CheckAviSize(record, 7, 5);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), text);
    }
}

TEST(AviHeaderBlock, AListThatIsCutIsSaid) {
    const AviHeaderBlock header;
    uint8_t area[AviHeaderBlock::kListSize - 1];
    ByteCursor out(area);
    testing::internal::CaptureStdout();
    header.Write(out);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "WriteJunk Error! Junk Size = 4028, Actual Size = 8 \n"
              "WriteHeaderList Error! HeaderList Size = 4104, Actual Size = 84 \n");
}

}  // namespace
}  // namespace Orvane::Muxora
