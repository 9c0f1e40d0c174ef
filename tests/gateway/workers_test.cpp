#include "hub/workers.h"

#include <gtest/gtest.h>

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>

using namespace Orvane::Muxora::Gateway;
using namespace std::chrono_literals;

// What waits on one thread may hold a timer of another, which is destroyed first.
TEST(Workers, WhatStillWaitsAtTheEndGoesWithTheThreads) {
    Workers workers(2);
    auto held = std::make_shared<boost::asio::steady_timer>(workers.At(0).Context());
    const std::weak_ptr<boost::asio::steady_timer> still_held = held;
    boost::asio::steady_timer waits(workers.At(1).Context(), 1h);
    waits.async_wait([held = std::move(held)](const boost::system::error_code&) {});
    workers.Start();
    ASSERT_FALSE(still_held.expired());
    workers.Stop();
    EXPECT_TRUE(still_held.expired());
}
