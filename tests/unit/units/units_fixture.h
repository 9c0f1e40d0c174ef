// Streams go in through the C interface; what comes out is written down.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "MuxoraExt.h"
#include "support/hex.h"

namespace Orvane::Muxora {

struct Given {
    test::ByteVector bytes;
    MXAccessUnit unit{};
};

class Units {
  public:
    Units(uint32_t frame_type, uint32_t encode_type, uint32_t flags = 0)
        : handle_(MX_CreateAccessUnits(frame_type, encode_type, flags), MX_DestroyAccessUnits) {}

    MXAccessUnits handle() const { return handle_.get(); }

    // What is whole behind these bytes.
    std::vector<Given> Put(const test::ByteVector& bytes) {
        EXPECT_EQ(MX_PutBytes(handle(), bytes.data(), static_cast<uint32_t>(bytes.size())), 0u);
        return Drain();
    }
    std::vector<Given> PutNal(const test::ByteVector& nal) {
        EXPECT_EQ(MX_PutNal(handle(), nal.data(), static_cast<uint32_t>(nal.size())), 0u);
        return Drain();
    }
    std::vector<Given> End() {
        EXPECT_EQ(MX_EndAccessUnits(handle()), 0u);
        return Drain();
    }
    // The whole of a stream.
    std::vector<Given> All(const test::ByteVector& bytes) {
        std::vector<Given> given = Put(bytes);
        for (Given& last : End())
            given.push_back(std::move(last));
        return given;
    }

  private:
    std::vector<Given> Drain() {
        std::vector<Given> given;
        MXAccessUnit unit{};
        unit.size = sizeof unit;
        while (MX_GetAccessUnit(handle(), &unit) == MX_OK) {
            const auto* const data = static_cast<const uint8_t*>(unit.data);
            given.push_back({{data, data + unit.length}, unit});
        }
        return given;
    }

    std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> handle_;
};

}  // namespace Orvane::Muxora
