// A finished piece of output: packed once, shared by every client, never copied and never changed.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "hub/shared_pages.h"

namespace Orvane::Muxora::Gateway {

struct Block {
    enum class Kind { kHeader, kMedia };

    Block() = default;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    std::span<const uint8_t> bytes;
    // They stand in one of both. In the pages, as a chunk of HTTP with its frame around it.
    std::vector<uint8_t> storage;
    std::shared_ptr<const SharedPages> pages;
    std::span<const uint8_t> chunk;
    Kind kind = Kind::kMedia;
    // A client may begin here, behind the header.
    bool key = false;
    bool video = false;
    bool audio = false;
    // Media: when it is decoded and how long it lasts; duration 0: not known.
    uint32_t time_scale = 1000;
    int64_t dts = 0;
    int64_t duration = 0;
    // RTP: where each packet ends in `bytes`; the times above are the packets' own, on the RTP clock.
    std::vector<uint32_t> packet_ends;
    // Of the frame that it came out with: microseconds since 1970.
    int64_t arrival_us = 0;

    double DtsSeconds() const { return static_cast<double>(dts) / time_scale; }
};

using BlockPtr = std::shared_ptr<const Block>;

// Takes the blocks of one output in order; called on one thread.
class BlockReceiver {
  public:
    virtual ~BlockReceiver() = default;
    // What a reader needs first, then media from a key frame on, then all that follows. It should go out now.
    virtual void Take(std::span<const BlockPtr> blocks) = 0;
    // How many bytes may wait in it.
    virtual size_t Room() const = 0;
    // The stream is gone; nothing more comes.
    virtual void End() = 0;
};

}  // namespace Orvane::Muxora::Gateway
