#include "packaging/broadcast.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <boost/asio/post.hpp>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "bounds.h"
#include "hub/hub.h"
#include "packaging/shelf.h"

using namespace Orvane::Muxora::Gateway;
using namespace std::chrono_literals;

namespace {

// A form of the classic transport stream: its pictures can be told apart by the bytes in them.
constexpr Form kForm{".test", MX_FORMAT_TS, 0, "video/mp2t", false};

Frame Picture(int number, bool key, size_t more = 0) {
    Frame frame;
    frame.media.type = MX_FRAME_VIDEO;
    frame.media.codec = MX_VIDEO_H264;
    frame.media.sub_type = key ? MX_SUB_I : MX_SUB_P;
    frame.media.time_ms = 1000 + number * 40;
    const std::string text = "picture " + std::to_string(number) + ";";
    std::vector<uint8_t> bytes = {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x65 : 0x41)};
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.resize(bytes.size() + more, 0x5A);
    frame.media.SetBytes(bytes.data(), bytes.size());
    frame.time_scale = 1000;
    frame.dts = frame.pts = number * 40;
    frame.duration = 40;
    frame.arrival_us = WallClockUs();
    return frame;
}

class Collector final : public BlockReceiver {
  public:
    void Take(std::span<const BlockPtr> blocks) override {
        const std::lock_guard lock(mutex_);
        blocks_.insert(blocks_.end(), blocks.begin(), blocks.end());
        ++takes_;
        changed_.notify_all();
    }
    size_t Room() const override { return room; }
    std::atomic<size_t> room{1u << 20};

    void End() override {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        changed_.notify_all();
    }

    // Waits until the text has come.
    bool Has(const std::string& text) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20),
                                 [&] { return Text().find(text) != std::string::npos; });
    }
    bool Ended() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return ended_; });
    }
    std::vector<BlockPtr> Blocks() {
        const std::lock_guard lock(mutex_);
        return blocks_;
    }
    // How often something was given.
    size_t Takes() {
        const std::lock_guard lock(mutex_);
        return takes_;
    }
    std::string All() {
        const std::lock_guard lock(mutex_);
        return Text();
    }

  private:
    std::string Text() const {
        std::string text;
        for (const BlockPtr& block : blocks_)
            text.append(block->bytes.begin(), block->bytes.end());
        return text;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<BlockPtr> blocks_;
    size_t takes_ = 0;
    bool ended_ = false;
};

class BroadcastTest : public ::testing::Test {
  protected:
    BroadcastTest() : workers_(2), hub_(workers_) {
        workers_.Start();
        stream_ = hub_.Add("cam", "test");
    }
    ~BroadcastTest() override {
        stream_->End();
        workers_.Stop();
    }

    // True once everything that was posted to the worker before is done.
    bool OnWorker(
        size_t worker, std::function<void()> work = [] {}) {
        std::promise<void> done;
        boost::asio::post(workers_.At(worker).Context(), [&] {
            work();
            done.set_value();
        });
        return done.get_future().wait_for(20s) == std::future_status::ready;
    }

    // As if each worker had so many connections.
    void LoadWorkers(size_t count) {
        for (const size_t worker : {size_t{0}, size_t{1}}) {
            ASSERT_TRUE(OnWorker(worker, [&] {
                for (size_t i = 0; i < count; ++i)
                    workers_.At(worker).Look(load_);
            }));
        }
    }

    std::shared_ptr<Collector> Join(size_t worker) {
        auto collector = std::make_shared<Collector>();
        boost::asio::post(workers_.At(worker).Context(),
                          [this, worker, collector] { broadcast_->Join(workers_.At(worker), collector); });
        return collector;
    }

    // How often the worker's thread has slept and been woken.
    uint64_t Wakes(size_t worker) {
        pid_t thread = 0;
        EXPECT_TRUE(OnWorker(worker, [&thread] { thread = gettid(); }));
        std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
        const std::string name = "voluntary_ctxt_switches:";
        for (std::string line; std::getline(status, line);) {
            if (line.compare(0, name.size(), name) == 0) return std::stoull(line.substr(name.size()));
        }
        ADD_FAILURE() << "the system does not say";
        return 0;
    }

    // Pushes them one by one, each when the one before has come.
    void PushSlowly(int count, Collector& collector) {
        for (int i = 0; i < count; ++i) {
            stream_->Push(Picture(i, i % 25 == 0));
            ASSERT_TRUE(collector.Has("picture " + std::to_string(i) + ";"));
        }
    }

    struct Load final : Guarded {
        void Expired() override {}
    };

    Load load_;
    Workers workers_;
    Hub hub_;
    StreamPtr stream_;
    std::shared_ptr<Broadcast> broadcast_;
};

}  // namespace

TEST_F(BroadcastTest, WhoJoinsLaterBeginsWithTheKeyFrame) {
    for (int i = 0; i < 5; ++i)
        stream_->Push(Picture(i, i == 0 || i == 3));
    broadcast_ = Broadcast::Make(workers_, stream_, kForm);
    ASSERT_NE(broadcast_, nullptr);
    for (const size_t worker : {size_t{0}, size_t{1}}) {
        const auto collector = Join(worker);
        EXPECT_TRUE(collector->Has("picture 4;"));
        const std::string all = collector->All();
        EXPECT_EQ(all.find("picture 2;"), std::string::npos);
        EXPECT_LT(all.find("picture 3;"), all.find("picture 4;"));
    }
}

TEST_F(BroadcastTest, ABlockIsOneBufferForEverybodyOnEveryThread) {
    broadcast_ = Broadcast::Make(workers_, stream_, kForm);
    const auto one = Join(0);
    const auto two = Join(1);
    const auto three = Join(1);
    for (int i = 0; i < 20; ++i)
        stream_->Push(Picture(i, i % 10 == 0));
    for (const auto& collector : {one, two, three})
        ASSERT_TRUE(collector->Has("picture 19;"));
    const BlockPtr last = one->Blocks().back();
    EXPECT_EQ(two->Blocks().back(), last);
    EXPECT_EQ(three->Blocks().back(), last);
}

TEST_F(BroadcastTest, WithFewConnectionsEachPictureGoesOutAtOnce) {
    broadcast_ = Broadcast::Make(workers_, stream_, kForm, 1h);
    const auto one = Join(1);
    ASSERT_NO_FATAL_FAILURE(PushSlowly(10, *one));
    EXPECT_GE(one->Takes(), 10U);
}

TEST_F(BroadcastTest, WithManyConnectionsPicturesAreCollectedUntilTheyAreMany) {
    LoadWorkers(kCollectFrom + 100000);  // 500 s
    broadcast_ = Broadcast::Make(workers_, stream_, kForm, 1h);
    const auto one = Join(1);
    stream_->Push(Picture(0, true));
    for (int i = 1; i < 10; ++i)
        stream_->Push(Picture(i, false));
    stream_->Push(Picture(10, false, kCollectBytes));
    ASSERT_TRUE(one->Has("picture 10;"));
    // Those ahead of the client's coming, if any, and all others.
    EXPECT_LE(one->Takes(), 2U);
    EXPECT_EQ(one->All().find("picture 0;"), one->All().find("picture"));
}

TEST_F(BroadcastTest, WhatWasCollectedGoesOutWhenItsTimeHasCome) {
    LoadWorkers(kCollectFrom + 100000);
    broadcast_ = Broadcast::Make(workers_, stream_, kForm, 30ms);
    const auto one = Join(1);
    stream_->Push(Picture(0, true));
    EXPECT_TRUE(one->Has("picture 0;"));
    stream_->Push(Picture(1, false));
    EXPECT_TRUE(one->Has("picture 1;"));
}

TEST_F(BroadcastTest, AThreadWhereNobodyWatchesSleeps) {
    broadcast_ = Broadcast::Make(workers_, stream_, kForm);
    const size_t home = &workers_.At(0) == &stream_->Home() ? 0 : 1;
    const auto one = Join(home);
    const uint64_t before = Wakes(1 - home);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_NO_FATAL_FAILURE(PushSlowly(400, *one));
    const auto sweeps = (std::chrono::steady_clock::now() - begin) / 250ms;
    EXPECT_LT(Wakes(1 - home), before + 50 + static_cast<uint64_t>(sweeps));
    // And has all of it for the first one who comes.
    const auto late = Join(1 - home);
    ASSERT_TRUE(late->Has("picture 399;"));
    EXPECT_NE(late->All().find("picture 375;"), std::string::npos);
    EXPECT_EQ(late->All().find("picture 374;"), std::string::npos);
}

TEST_F(BroadcastTest, AThreadThatCollectsIsNotWokenForEachBlock) {
    broadcast_ = Broadcast::Make(workers_, stream_, kForm, 1h);
    const size_t home = &workers_.At(0) == &stream_->Home() ? 0 : 1;
    const auto one = Join(home);
    const auto other = Join(1 - home);
    ASSERT_TRUE(OnWorker(1 - home, [&] {
        for (size_t i = 0; i < kCollectFrom + 100000; ++i)
            workers_.At(1 - home).Look(load_);
    }));
    const uint64_t before = Wakes(1 - home);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_NO_FATAL_FAILURE(PushSlowly(400, *one));
    const auto sweeps = (std::chrono::steady_clock::now() - begin) / 250ms;
    EXPECT_LT(Wakes(1 - home), before + 50 + static_cast<uint64_t>(sweeps));
    stream_->Push(Picture(400, true, kCollectBytes));
    EXPECT_TRUE(other->Has("picture 400;"));
}

TEST_F(BroadcastTest, WhatWasCollectedGoesOutAheadOfTheEnd) {
    LoadWorkers(kCollectFrom + 100000);
    broadcast_ = Broadcast::Make(workers_, stream_, kForm, 1h);
    const auto one = Join(0);
    ASSERT_TRUE(OnWorker(0));
    stream_->Push(Picture(0, true));
    hub_.Remove("cam");
    EXPECT_TRUE(one->Ended());
    EXPECT_NE(one->All().find("picture 0;"), std::string::npos);
}

TEST_F(BroadcastTest, EverybodyHearsOfTheEnd) {
    broadcast_ = Broadcast::Make(workers_, stream_, kForm);
    const auto one = Join(0);
    const auto two = Join(1);
    stream_->Push(Picture(0, true));
    ASSERT_TRUE(one->Has("picture 0;"));
    hub_.Remove("cam");
    EXPECT_TRUE(one->Ended());
    EXPECT_TRUE(two->Ended());
    EXPECT_TRUE(Join(1)->Ended());
}

TEST_F(BroadcastTest, AGroupThatDoesNotFitIsNoBeginningAndTheNextOneIs) {
    broadcast_ = Broadcast::Make(workers_, stream_, kForm);
    for (int i = 0; i < 3; ++i)
        stream_->Push(Picture(i, i == 0));
    ASSERT_TRUE(Join(0)->Has("picture 2;"));
    auto small = std::make_shared<Collector>();
    small->room = 100;
    boost::asio::post(workers_.At(0).Context(), [this, small] { broadcast_->Join(workers_.At(0), small); });
    for (int i = 3; i < 6; ++i)
        stream_->Push(Picture(i, i == 4));
    ASSERT_TRUE(small->Has("picture 5;"));
    EXPECT_EQ(small->All().find("picture 2;"), std::string::npos);
}

// Who asks for an output while the stream is removed may come too late for Drop.
TEST_F(BroadcastTest, AStreamThatWasRemovedLeavesNoOutputOnTheShelf) {
    Shelf shelf(workers_);
    ASSERT_NE(shelf.Get(stream_, kForm), nullptr);
    EXPECT_EQ(shelf.Of(*stream_).size(), 1U);
    hub_.Remove("cam");
    shelf.Drop(*stream_);
    broadcast_ = shelf.Get(stream_, kForm);
    ASSERT_NE(broadcast_, nullptr);
    EXPECT_TRUE(shelf.Of(*stream_).empty());
    EXPECT_TRUE(Join(1)->Ended());
}

TEST_F(BroadcastTest, AFormatThatIsNotMadeGivesNothing) {
    constexpr Form kNone{".none", 999, 0, "", false};
    EXPECT_EQ(Broadcast::Make(workers_, stream_, kNone), nullptr);
}

TEST_F(BroadcastTest, StatusTellsWhatComes) {
    for (int i = 0; i < 5; ++i)
        stream_->Push(Picture(i, i % 2 == 0));
    broadcast_ = Broadcast::Make(workers_, stream_, kForm);
    ASSERT_TRUE(Join(0)->Has("picture 4;"));
    const StreamStatus status = stream_->Status();
    EXPECT_EQ(status.pictures, 5U);
    EXPECT_EQ(status.video, "H.264 0x0");
    EXPECT_NEAR(status.key_distance, 0.08, 1e-6);
}

TEST(Hub, ANameIsGivenOnce) {
    Workers workers(1);
    Hub hub(workers);
    EXPECT_NE(hub.Add("a", ""), nullptr);
    EXPECT_EQ(hub.Add("a", ""), nullptr);
    EXPECT_EQ(hub.Remove("b"), nullptr);
    EXPECT_NE(hub.Remove("a"), nullptr);
    EXPECT_EQ(hub.Find("a"), nullptr);
    EXPECT_NE(hub.Add("a", ""), nullptr);
}
