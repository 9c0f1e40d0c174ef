// Messages: to standard output, or to a function.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "MuxoraExt.h"

namespace {

constexpr char kWarning[] = "[Muxora] [WARN] AuidoSample is not multiple of 1000! May cause out-sync!\n";

void Warn() {
    const MXHandle rtp = MX_CreateHandle(MX_FORMAT_RTP, nullptr);
    MXRtpParam param{};
    param.rtp_audio_sample = 44100;
    MX_SetParam(rtp, MX_PARAM_RTP, &param, sizeof param);
    MX_DestroyHandle(rtp);
}

void Append(const char* text, void* user) {
    *static_cast<std::string*>(user) += text;
}

TEST(Messages, GoToStandardOutputOrToAFunction) {
    testing::internal::CaptureStdout();
    Warn();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), kWarning);

    std::string taken;
    testing::internal::CaptureStdout();
    MX_SetMessageFunction(Append, &taken);
    Warn();
    EXPECT_EQ(taken, kWarning);
    const MXHandle rtp = MX_CreateHandle(MX_FORMAT_RTP, nullptr);
    MXHeaderInfo header{};
    MX_CreateHeader(rtp, &header);
    unsigned char sound[] = {1, 2};
    MXFrameInfo frame{};
    frame.size = sizeof frame;
    frame.frame_pointer = sound;
    frame.frame_size = sizeof sound;
    frame.frame_type = MX_FRAME_AUDIO;
    frame.encode_type = MX_AUDIO_ALAW;
    EXPECT_EQ(MX_InputFrame(rtp, &frame), 3u);
    MX_DestroyHandle(rtp);
    EXPECT_EQ(taken, std::string(kWarning) + "[Muxora] [ERROR] AudioSample(0), AudioGranularity(0) should not be 0.\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

    MX_SetMessageFunction(nullptr, nullptr);
    testing::internal::CaptureStdout();
    Warn();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), kWarning);
}

void Replace(const char* text, void* user) {
    Append(text, user);
    MX_SetMessageFunction(Append, user);
}

TEST(Messages, TheFunctionMaySetAnother) {
    std::string taken;
    MX_SetMessageFunction(Replace, &taken);
    Warn();
    Warn();
    MX_SetMessageFunction(nullptr, nullptr);
    EXPECT_EQ(taken, std::string(kWarning) + kWarning);
}

}  // namespace
