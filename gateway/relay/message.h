// A frame on its way between gateways: one OVX unit as the message's payload, and this in its headers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Orvane::Muxora::Gateway {

struct RelayNote {
    // Who publishes, and since when: of two, the one that began later is the greater. 16 hexadecimal digits.
    std::string origin;
    uint64_t number = 0;     // of the message; one origin counts on from 0 without a gap
    uint64_t since_key = 0;  // messages behind the one with which a viewer can begin; 0: this one
    // A unit larger than the server takes goes in pieces, each a message.
    uint32_t piece = 0;
    uint32_t pieces = 1;
    // The frame's times in ticks, of which a second has `time_scale`.
    uint32_t time_scale = 1000;
    int64_t dts = 0;
    int64_t pts = 0;
    int64_t duration = 0;
    int64_t arrival_us = 0;        // Frame::arrival_us at the origin
    uint32_t samples_per_sec = 0;  // of sound: a unit knows the usual ones only
};

using RelayHeaders = std::vector<std::pair<std::string, std::string>>;

RelayHeaders PrintNote(const RelayNote& note);
// `find` gives a header's value, or null. False when what must be there is not, or is out of range.
bool ParseNote(const std::function<const char*(const char*)>& find, RelayNote& note);

// A new origin's name, from the wall clock (microseconds since 1970) and some bits by chance.
std::string OriginName(int64_t now_us, uint32_t chance);

// "muxora.NAME", and JetStream's name of what keeps its messages: "muxora-NAME".
std::string RelaySubject(const std::string& stream);
std::string RelayStore(const std::string& stream);
// The stream of a store; empty when the store is another's.
std::string StreamOfStore(const std::string& store);

// "nats://one:4222,nats://two:4222/NAME": servers of one cluster, and the published name.
struct RelayAddress {
    std::vector<std::string> servers;
    std::string name;  // empty: not said
};
bool IsRelayAddress(const std::string& text);
// Throws std::runtime_error.
RelayAddress ParseRelayAddress(const std::string& text);

}  // namespace Orvane::Muxora::Gateway
