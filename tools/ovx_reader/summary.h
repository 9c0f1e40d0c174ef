#pragma once

#include <string>

#include "ovx_reader/reader.h"

namespace Orvane::OvxReader {

// What the pieces of an input add up to.
class Summary {
  public:
    struct Stream {
        uint64_t units = 0;
        uint32_t first = 0;  // sequence numbers
        uint32_t last = 0;
        uint64_t jumps = 0;  // places where a number does not follow the one before
    };

    void Add(const Piece& piece);

    Stream video;
    Stream audio;
    uint64_t bytes = 0;
    uint64_t damaged_units = 0;
    uint64_t damaged_bytes = 0;  // in those units
    uint64_t lost_stretches = 0;
    uint64_t lost_bytes = 0;
    uint64_t encrypted_units = 0;

    bool Damaged() const { return damaged_units != 0 || lost_stretches != 0; }
    // Such as "2 damaged units (130 bytes), 1 lost stretch (57 bytes)".
    std::string DamageText() const;
};

// What is wrong with a piece that is not intact, in words.
std::string DamageText(const Piece& piece);

}  // namespace Orvane::OvxReader
