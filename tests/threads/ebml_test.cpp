// Several threads, and calls from within calls. Most telling under ThreadSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <utility>

#include "codec/ebml.h"
#include "mkv/mkv_packet.h"
#include "support/mkv_file.h"

namespace Orvane::Muxora {
namespace {

using namespace MkvTest;

// The bytes stay good until the next call of the same thread, whatever other threads do.
TEST(MkvThreads, CodedSizesDoNotDisturbEachOther) {
    std::atomic<bool> stop{false};
    std::thread other([&] {
        uint32_t length = 0;
        while (!stop)
            EbmlCodeSize(0x0FFFFFFE'FFFFFFFF, &length);
    });
    constexpr uint8_t kExpected[] = {0x20, 0x3F, 0xFF};
    bool intact = true;
    for (int i = 0; i < 200000; ++i) {
        uint32_t length = 0;
        const uint8_t* const code = EbmlCodeSize(16383, &length);
        intact = intact && std::equal(code, code + length, std::begin(kExpected), std::end(kExpected));
    }
    stop = true;
    other.join();
    EXPECT_TRUE(intact);
}

TEST(MkvThreads, FramesFromTwoThreadsDoNotMix) {
    constexpr uint32_t kFrames = 2000;
    File file(1059 + 2 * kFrames * (kBlock + 16) + 12 + 2 * kFrames * 23);
    MXCreateParam param = file.Param();
    const auto packet = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &param);
    Start(*packet);
    const auto give = [&] {
        for (uint32_t i = 0; i < kFrames; ++i)
            Give(*packet, MX_SUB_I, 25);
    };
    std::thread other(give);
    give();
    other.join();
    packet->createTailer(nullptr, 0);
    const Clusters read = ReadClusters(file);
    EXPECT_EQ(read.blocks, 2 * kFrames);
    EXPECT_EQ(read.count, 2 * kFrames / 25);
}

// The callback runs under the lock and may itself hand in a frame.
TEST(MkvThreads, TheLockIsRecursive) {
    struct Echo {
        CMkvPacket* packet;
        bool armed;
        uint32_t result;
    } echo{nullptr, false, 99};
    MXCreateParam param{};
    param.user = &echo;
    param.output = [](const MXOutputBlock*, void* user) {
        auto& state = *static_cast<Echo*>(user);
        if (std::exchange(state.armed, false)) state.result = Give(*state.packet, MX_SUB_KEY, 25);
        return 0;
    };
    const auto packet = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &param);
    echo.packet = packet.get();
    Start(*packet);
    Give(*packet, MX_SUB_I, 25);
    echo.armed = true;
    Give(*packet, MX_SUB_P, 25);
    EXPECT_EQ(echo.result, 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
