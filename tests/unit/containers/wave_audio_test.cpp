#include "containers/wave_audio.h"

#include <gtest/gtest.h>

namespace Orvane::Muxora {
namespace {

TEST(WaveAudio, BlockAlign) {
    EXPECT_EQ(WaveBlockAlign(1, 2, 16), 4);
    EXPECT_EQ(WaveBlockAlign(1, 1, 12), 1);  // whole bytes
    EXPECT_EQ(WaveBlockAlign(6, 2, 16), 2);
    EXPECT_EQ(WaveBlockAlign(7, 1, 16), 1);
    EXPECT_EQ(WaveBlockAlign(255, 2, 16), 1536);
    EXPECT_EQ(WaveBlockAlign(255, 86, 16), 512);  // 66048 in 16 bits
}

}  // namespace
}  // namespace Orvane::Muxora
