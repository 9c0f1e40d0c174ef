// What an edge makes of the messages of a stream: whole units in the order of their origin, each once, beginning with a
// key frame. A message that had to be sent again comes late, and those behind it wait for it. Of several origins that
// publish the same stream one is followed.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "relay/outbox.h"

namespace Orvane::Muxora::Gateway {

class RelayInbox {
  public:
    // A unit; its note is that of its last piece.
    using Sink = std::function<void(const RelayNote& note, std::vector<uint8_t>&& unit)>;

    explicit RelayInbox(Sink sink) : sink_(std::move(sink)) {}

    // Follow this origin, and begin with this key frame of it. Otherwise the first key frame that comes begins.
    void BeginAt(const std::string& origin, uint64_t number, int64_t stored_us);
    // `stored_us`: when the servers took it, microseconds since 1970.
    void Take(RelayMessage message, int64_t stored_us);
    // Messages between those before and those to come are gone for good.
    void Gap();

    // Messages that never came.
    uint64_t Missing() const { return missing_; }

  private:
    bool Follow(const RelayNote& note, int64_t stored_us);
    void Release();
    void GiveUp();
    void Give(RelayMessage message);

    const Sink sink_;
    std::string origin_;     // the one that is followed; empty: none yet
    bool begun_ = false;     // something of it was given
    bool aimed_ = false;     // `next_` is what comes next; otherwise the next key frame is
    uint64_t next_ = 0;      // behind what was given last
    int64_t stored_us_ = 0;  // of the followed origin's latest
    int64_t since_us_ = 0;   // something is missing since then
    std::map<uint64_t, RelayMessage> waiting_;
    size_t waiting_bytes_ = 0;
    std::vector<uint8_t> unit_;  // pieces so far
    uint32_t pieces_ = 0;
    uint64_t missing_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
