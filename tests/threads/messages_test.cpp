// The function for messages is set and replaced while others pack.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "MuxoraExt.h"

namespace {

struct Listener {
    std::atomic<bool> set{false};
    std::atomic<int> heard{0};
    std::atomic<int> strays{0};
};

void Hear(const char* /*text*/, void* user) {
    auto* const listener = static_cast<Listener*>(user);
    ++(listener->set ? listener->heard : listener->strays);
}

void Drop(const char* /*text*/, void* /*user*/) {
}

TEST(MessageThreads, AFunctionThatWasReplacedIsNotCalledAnyMore) {
    MX_SetMessageFunction(Drop, nullptr);
    std::atomic<bool> done{false};
    std::vector<std::thread> packers;
    for (int i = 0; i < 3; ++i) {
        packers.emplace_back([&] {
            const MXHandle rtp = MX_CreateHandle(MX_FORMAT_RTP, nullptr);
            MXRtpParam param{};
            param.rtp_audio_sample = 44100;  // says something each time
            while (!done)
                MX_SetParam(rtp, MX_PARAM_RTP, &param, sizeof param);
            MX_DestroyHandle(rtp);
        });
    }
    Listener listeners[2];
    for (int round = 0; round < 50; ++round) {
        Listener& listener = listeners[round % 2];
        listener.set = true;
        MX_SetMessageFunction(Hear, &listener);
        const int before = listener.heard;
        while (listener.heard == before)
            std::this_thread::yield();
        MX_SetMessageFunction(Drop, nullptr);
        listener.set = false;
    }
    done = true;
    for (std::thread& packer : packers)
        packer.join();
    MX_SetMessageFunction(nullptr, nullptr);
    EXPECT_EQ(listeners[0].strays + listeners[1].strays, 0);
}

}  // namespace
