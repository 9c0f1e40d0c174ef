#include "servers/page_lane.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "bounds.h"
#include "hub/shared_pages.h"

using namespace Orvane::Muxora::Gateway;

namespace {

// The ends of a connection of which the first does not block.
class Ends {
  public:
    Ends() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_.data()), 0);
        EXPECT_EQ(fcntl(ends_[0], F_SETFL, O_NONBLOCK), 0);
    }
    ~Ends() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;

    int Near() const { return ends_[0]; }
    std::string Read(size_t size) const {
        std::string text(size, '\0');
        size_t done = 0;
        while (done < size) {
            const ssize_t got = read(ends_[1], text.data() + done, size - done);
            if (got <= 0) break;
            done += static_cast<size_t>(got);
        }
        text.resize(done);
        return text;
    }

  private:
    std::array<int, 2> ends_{};
};

std::string Counting(size_t size) {
    std::string text;
    for (size_t i = 0; text.size() < size; ++i)
        text += std::to_string(i) + ' ';
    text.resize(size);
    return text;
}

std::shared_ptr<SharedPages> Pages(const std::string& text) {
    auto pages = SharedPages::Make(text.size());
    if (pages != nullptr) pages->Append(text.data(), text.size());
    return pages;
}

}  // namespace

TEST(PageLane, BytesComeAsTheyStandAlsoWhereTheirMemoryIsGoneByThen) {
    PageLane lane;
    for (const size_t size : {size_t{1}, kLendFrom - 1, kLendFrom, kLendFrom + 4095, 10 * kLendFrom + 1}) {
        for (const size_t skipped : {size_t{0}, size_t{1}, size_t{4095}}) {
            const Ends ends;
            const std::string text = Counting(size + skipped);
            auto pages = Pages(text);
            ASSERT_NE(pages, nullptr);
            int error = -1;
            ASSERT_EQ(lane.Send(ends.Near(), {pages->Data() + skipped, size}, error), size);
            EXPECT_EQ(error, 0);
            pages.reset();
            EXPECT_EQ(ends.Read(size), text.substr(skipped));
        }
    }
}

TEST(PageLane, WhatASocketDoesNotTakeGoesToNobodyElse) {
    PageLane lane;
    const std::string text = Counting(4u << 20);
    const auto pages = Pages(text);
    ASSERT_NE(pages, nullptr);
    const Ends full;
    size_t sent = 0;
    int error = 0;
    for (size_t now = 1; now != 0; sent += now)
        now = lane.Send(full.Near(), {pages->Data() + sent, text.size() - sent}, error);
    EXPECT_EQ(error, EAGAIN);
    ASSERT_LT(sent, text.size());
    const Ends other;
    ASSERT_EQ(lane.Send(other.Near(), {pages->Data() + 5, 2 * kLendFrom}, error), 2 * kLendFrom);
    EXPECT_EQ(other.Read(2 * kLendFrom), text.substr(5, 2 * kLendFrom));
    // And the one that was full goes on where it stood.
    EXPECT_EQ(full.Read(sent), text.substr(0, sent));
    ASSERT_EQ(lane.Send(full.Near(), {pages->Data() + sent, kLendFrom}, error), kLendFrom);
    EXPECT_EQ(full.Read(kLendFrom), text.substr(sent, kLendFrom));
}

TEST(PageLane, WithoutAPipeBytesAreCopied) {
    PageLane lane;
    const Ends ends;
    const std::string text = Counting(2 * kLendFrom);
    std::vector<int> held;
    for (int one = dup(0); one >= 0; one = dup(0))
        held.push_back(one);
    int error = -1;
    const size_t sent = lane.Send(ends.Near(), {reinterpret_cast<const uint8_t*>(text.data()), text.size()}, error);
    for (const int one : held)
        close(one);
    EXPECT_EQ(sent, text.size());
    EXPECT_EQ(error, 0);
    EXPECT_EQ(ends.Read(text.size()), text);
}
