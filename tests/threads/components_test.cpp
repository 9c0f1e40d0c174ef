// Components on several threads at once: what is process-wide (the registry, the tables, the choice of kernels) must
// bear it; an object belongs to one thread.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Muxora.h"

namespace {

using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::IMuxora;
using Orvane::Muxora::IMuxoraData;

TEST(ComponentThreads, EachThreadMakesItsOwnFromTheSameFactory) {
    constexpr const char* kKeys[] = {"ovx", "ts", "ps", "rtp"};
    std::vector<std::thread> threads;
    for (const char* key : kKeys) {
        threads.emplace_back([key] {
            Orvane::Muxora::initMuxoraComponentLibrary();
            auto* const factory = dynamic_cast<IMuxora::IFactory*>(Basalt::IFactoryUnknown::findFactory("Muxora"));
            ASSERT_NE(factory, nullptr);
            IMuxora* const stream = factory->create(key);
            std::vector<unsigned char> frame = {0, 0, 0, 1, 0x65};
            frame.resize(5000, 0x55);
            for (int i = 0; i < 50; ++i) {
                // No date: the C library's lock around its time zone is one that ThreadSanitizer can't see.
                const AttributeMap attributes = {{"frametype", 86},
                                                 {"framesubtype", 1},
                                                 {"encodetype", 2},
                                                 {"rate", 25},
                                                 {"timestamp", 40 * i + 40}};
                ASSERT_TRUE(stream->inputFrame(frame.data(), static_cast<unsigned>(frame.size()) - 1, attributes))
                    << key;
                Basalt::TSharedPtr<IMuxoraData> packet;
                ASSERT_TRUE(stream->getPacket(packet)) << key;
                ASSERT_FALSE(stream->getPacket(packet));
                ASSERT_EQ(Basalt::getLastError(), 10u);
            }
            stream->release();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Basalt::getLastError(), 0u);
}

}  // namespace
