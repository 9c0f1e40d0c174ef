// What a box writes, for the tests of the box tree.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "core/grow_buffer.h"
#include "iso/box.h"
#include "support/hex.h"

namespace Orvane::Muxora {

// The bytes of a box. Its own size, the count that it returns and the bytes in the buffer must agree, and nothing may
// be printed.
inline test::ByteVector Written(const CBox& box) {
    CGrowBuffer buffer;
    testing::internal::CaptureStdout();
    const uint32_t count = box.Write(&buffer);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(count, buffer.Size());
    EXPECT_EQ(count, box.GetSize());
    return {buffer.Data(), buffer.Data() + buffer.Size()};
}

// The same for a box whose size is expected not to fit: what it prints.
inline std::string Complaints(const CBox& box) {
    CGrowBuffer buffer;
    testing::internal::CaptureStdout();
    box.Write(&buffer);
    return testing::internal::GetCapturedStdout();
}

}  // namespace Orvane::Muxora
