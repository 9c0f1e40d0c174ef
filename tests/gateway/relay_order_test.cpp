// What an origin does with messages that are not confirmed, and an edge with messages that come late, twice or not at
// all.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "relay/inbox.h"
#include "relay/outbox.h"

using namespace Orvane::Muxora::Gateway;

namespace {

using Numbers = std::vector<uint64_t>;
using Clock = RelayOutbox::Clock;

// Times of the tests, in milliseconds from any begin.
Clock::time_point At(int64_t ms) {
    return Clock::time_point(std::chrono::hours(1)) + std::chrono::milliseconds(ms);
}

RelayMessage Numbered(uint64_t number, size_t size = 1) {
    RelayMessage message;
    message.note.number = number;
    message.bytes.resize(size);
    return message;
}

Numbers Sent(RelayOutbox& outbox, int64_t ms, size_t most = 100) {
    Numbers sent;
    outbox.Send(At(ms), [&](const RelayMessage& message) {
        if (sent.size() == most) return false;
        sent.push_back(message.note.number);
        return true;
    });
    return sent;
}

}  // namespace

TEST(RelayOutbox, SendsEachOnceWhileAllGoesWell) {
    RelayOutbox outbox;
    outbox.Put(Numbered(0));
    outbox.Put(Numbered(1));
    EXPECT_EQ(Sent(outbox, 0), (Numbers{0, 1}));
    outbox.Put(Numbered(2));
    EXPECT_EQ(Sent(outbox, 100), Numbers{2});
    EXPECT_TRUE(outbox.Confirmed(1));
    EXPECT_TRUE(outbox.Confirmed(0));
    EXPECT_FALSE(outbox.Confirmed(0));
    EXPECT_FALSE(outbox.Confirmed(7));
    EXPECT_EQ(Sent(outbox, 1000), Numbers{});
    EXPECT_FALSE(outbox.Empty());
    EXPECT_TRUE(outbox.Confirmed(2));
    EXPECT_TRUE(outbox.Empty());
    EXPECT_FALSE(outbox.Confirmed(2));
}

TEST(RelayOutbox, GoesOnWhereTheConnectionTookNoMore) {
    RelayOutbox outbox;
    for (uint64_t i = 0; i < 5; ++i)
        outbox.Put(Numbered(i));
    EXPECT_EQ(Sent(outbox, 0, 2), (Numbers{0, 1}));
    EXPECT_EQ(Sent(outbox, 10), (Numbers{2, 3, 4}));
}

TEST(RelayOutbox, TriesTheOldestAloneUntilItIsTaken) {
    RelayOutbox outbox;
    for (uint64_t i = 0; i < 4; ++i)
        outbox.Put(Numbered(i));
    Sent(outbox, 0);
    EXPECT_TRUE(outbox.Confirmed(2));
    EXPECT_EQ(Sent(outbox, 1400), Numbers{});
    EXPECT_TRUE(outbox.HasRoom());
    EXPECT_EQ(Sent(outbox, 1600), Numbers{0});
    EXPECT_FALSE(outbox.HasRoom());
    EXPECT_EQ(Sent(outbox, 1700), Numbers{});
    EXPECT_EQ(Sent(outbox, 1900), Numbers{0});
    EXPECT_TRUE(outbox.Confirmed(0));
    // Then the others, but for what is there already.
    EXPECT_TRUE(outbox.HasRoom());
    EXPECT_EQ(Sent(outbox, 1901), (Numbers{1, 3}));
}

TEST(RelayOutbox, AWordOfRefusalOrANewConnectionSendsAgain) {
    for (const bool refused : {true, false}) {
        RelayOutbox outbox;
        outbox.Put(Numbered(5));
        outbox.Put(Numbered(6));
        EXPECT_EQ(Sent(outbox, 0), (Numbers{5, 6}));
        refused ? outbox.Refused() : outbox.Reconnected();
        EXPECT_EQ(Sent(outbox, 1), Numbers{5});
        EXPECT_TRUE(outbox.Confirmed(5));
        EXPECT_EQ(Sent(outbox, 2), Numbers{6});
    }
}

TEST(RelayOutbox, HasRoomForAWindowOfBytes) {
    RelayOutbox outbox;
    EXPECT_TRUE(outbox.HasRoom());
    outbox.Put(Numbered(0, kRelayWindowBytes));
    EXPECT_FALSE(outbox.HasRoom());
    Sent(outbox, 0);
    EXPECT_TRUE(outbox.Confirmed(0));
    EXPECT_TRUE(outbox.HasRoom());
    outbox.Refused();  // of nothing
    EXPECT_TRUE(outbox.HasRoom());
}

namespace {

// Origins "a" and "b"; every fifth message is a key frame, and one is stored each 40 ms.
class Inbox : public testing::Test {
  protected:
    void Take(uint64_t number, char origin = 'a', int64_t later_us = 0) {
        RelayMessage message;
        message.note.origin = origin;
        message.note.number = number;
        message.note.since_key = number % 5;
        message.bytes = {static_cast<uint8_t>(origin), static_cast<uint8_t>(number)};
        stored_us_ += 40000 + later_us;
        inbox_.Take(std::move(message), stored_us_);
    }
    // What was given since the last call: "a5 a6".
    std::string Given() { return std::exchange(given_, {}); }

    RelayInbox inbox_{[this](const RelayNote& note, std::vector<uint8_t>&& unit) {
        EXPECT_EQ(note.origin, std::string(1, static_cast<char>(unit[0])));
        given_ += (given_.empty() ? "" : " ") + note.origin + std::to_string(unit[1]);
    }};
    int64_t stored_us_ = 1000000000000000;
    std::string given_;
};

}  // namespace

TEST_F(Inbox, BeginsWithTheFirstKeyFrame) {
    for (const uint64_t number : {uint64_t{3}, uint64_t{4}, uint64_t{5}, uint64_t{6}})
        Take(number);
    EXPECT_EQ(Given(), "a5 a6");
}

TEST_F(Inbox, BeginsWhereItIsTold) {
    inbox_.BeginAt("a", 10, stored_us_);
    for (const uint64_t number :
         {uint64_t{4}, uint64_t{5}, uint64_t{6}, uint64_t{7}, uint64_t{8}, uint64_t{9}, uint64_t{10}, uint64_t{11}})
        Take(number);
    EXPECT_EQ(Given(), "a10 a11");
}

TEST_F(Inbox, BeginsLaterWhereThatIsGone) {
    inbox_.BeginAt("a", 10, stored_us_);
    for (const uint64_t number : {uint64_t{11}, uint64_t{12}, uint64_t{15}, uint64_t{16}})
        Take(number);
    EXPECT_EQ(Given(), "a15 a16");
    EXPECT_EQ(inbox_.Missing(), 0U);
}

TEST_F(Inbox, TheKeyFrameItselfMayComeLate) {
    inbox_.BeginAt("a", 10, stored_us_);
    for (const uint64_t number : {uint64_t{11}, uint64_t{12}, uint64_t{10}, uint64_t{13}})
        Take(number);
    EXPECT_EQ(Given(), "a10 a11 a12 a13");
}

TEST_F(Inbox, PutsInOrderWhatWasSentAgain) {
    for (const uint64_t number : {uint64_t{0}, uint64_t{1}, uint64_t{3}, uint64_t{4}, uint64_t{5}})
        Take(number);
    EXPECT_EQ(Given(), "a0 a1");
    Take(2);
    EXPECT_EQ(Given(), "a2 a3 a4 a5");
    for (const uint64_t number : {uint64_t{2}, uint64_t{3}, uint64_t{5}, uint64_t{6}, uint64_t{6}})
        Take(number);
    EXPECT_EQ(Given(), "a6");
    EXPECT_EQ(inbox_.Missing(), 0U);
}

TEST_F(Inbox, GoesOnWithAKeyFrameWhenOneNeverComes) {
    for (const uint64_t number : {uint64_t{0}, uint64_t{1}, uint64_t{3}, uint64_t{4}})
        Take(number);
    for (uint64_t number = 5; number < 12; ++number)
        Take(number);
    EXPECT_EQ(Given(), "a0 a1");
    Take(12, 'a', 20000000);
    EXPECT_EQ(Given(), "a5 a6 a7 a8 a9 a10 a11 a12");
    EXPECT_EQ(inbox_.Missing(), 3U);
}

TEST_F(Inbox, GoesOnWithTheNextKeyFrameWhenNoneWaits) {
    for (const uint64_t number : {uint64_t{0}, uint64_t{1}, uint64_t{3}})
        Take(number);
    Take(4, 'a', 21000000);
    EXPECT_EQ(Given(), "a0 a1");
    for (const uint64_t number : {uint64_t{6}, uint64_t{7}, uint64_t{10}, uint64_t{11}})
        Take(number);
    EXPECT_EQ(Given(), "a10 a11");
    EXPECT_EQ(inbox_.Missing(), 8U);
}

TEST_F(Inbox, WaitsForNothingThatTheServersDroppedAlready) {
    for (const uint64_t number : {uint64_t{0}, uint64_t{1}})
        Take(number);
    inbox_.Gap();
    for (const uint64_t number : {uint64_t{23}, uint64_t{24}, uint64_t{25}, uint64_t{26}})
        Take(number);
    EXPECT_EQ(Given(), "a0 a1 a25 a26");
    EXPECT_EQ(inbox_.Missing(), 23U);
}

TEST_F(Inbox, WhatWaitsIsBounded) {
    Take(0);
    Take(1);
    for (uint64_t number = 3; number < 3 + kMaxRelayWaiting + 1; ++number) {
        stored_us_ -= 40000;  // all at once
        Take(number);
    }
    EXPECT_EQ(Given().substr(0, 11), "a0 a1 a5 a6");
}

TEST_F(Inbox, FollowsTheOriginThatBeganLaterFromItsKeyFrameOn) {
    for (const uint64_t number : {uint64_t{0}, uint64_t{1}})
        Take(number);
    Take(8, 'b');
    Take(2);
    Take(10, 'b');
    Take(3);
    Take(5);  // a key frame, and of the older one
    Take(11, 'b');
    EXPECT_EQ(Given(), "a0 a1 a2 b10 b11");
}

TEST_F(Inbox, GoesBackToTheOlderOriginWhenTheLaterIsSilent) {
    Take(0, 'b');
    Take(5, 'a');
    Take(6, 'a');
    Take(10, 'a', 1500000);
    EXPECT_EQ(Given(), "b0");
    Take(14, 'a', 1000000);
    Take(15, 'a');
    Take(16, 'a');
    EXPECT_EQ(Given(), "a15 a16");
    // And forward again.
    Take(5, 'b');
    EXPECT_EQ(Given(), "b5");
}

TEST_F(Inbox, AnOriginThatWasAimedAtAndIsSilentIsLeft) {
    inbox_.BeginAt("b", 10, stored_us_);
    Take(5, 'a');
    EXPECT_EQ(Given(), "");
    Take(10, 'a', 2000000);
    EXPECT_EQ(Given(), "a10");
}

TEST(RelayPieces, AreJoined) {
    std::vector<std::string> given;
    RelayInbox inbox([&given](const RelayNote& note, std::vector<uint8_t>&& unit) {
        given.push_back(std::string(unit.begin(), unit.end()) + " " + std::to_string(note.dts));
    });
    const auto take = [&inbox](uint64_t number, uint64_t key, uint32_t piece, uint32_t pieces,
                               const std::string& bytes) {
        RelayMessage message;
        message.note.origin = "a";
        message.note.number = number;
        message.note.since_key = number - key;
        message.note.piece = piece;
        message.note.pieces = pieces;
        message.note.dts = static_cast<int64_t>(key);
        message.bytes.assign(bytes.begin(), bytes.end());
        inbox.Take(std::move(message), 1000000);
    };
    take(0, 0, 0, 3, "one ");
    take(2, 0, 2, 3, "three");
    EXPECT_TRUE(given.empty());
    take(1, 0, 1, 3, "two ");
    take(3, 0, 0, 1, "next");
    EXPECT_EQ(given, (std::vector<std::string>{"one two three 0", "next 0"}));
    // Pieces that do not belong together belong to nothing.
    take(4, 4, 0, 3, "x");
    take(5, 4, 2, 3, "x");
    take(6, 4, 1, 2, "x");
    take(7, 7, 0, 1, "good");
    EXPECT_EQ(given.size(), 3U);
    EXPECT_EQ(given.back(), "good 7");
}
