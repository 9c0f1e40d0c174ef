// What a gateway makes of messages of other gateways: their headers, their order, the units in them; and the words of
// who starts it.
//
// Input: a byte, 0 for the text of an address. Otherwise messages: lines "Name: value" up to an empty one, a byte of
// time in 100 ms, two of the payload's size, the payload.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bounds.h"
#include "gateway/header_map.h"
#include "hub/stream_name.h"
#include "relay/inbox.h"
#include "relay/message.h"
#include "relay/unit.h"

using namespace Orvane::Muxora::Gateway;

namespace {

using test::HeaderMap;
using test::ParseHeaders;

void Require(bool good) {
    if (!good) std::abort();
}

HeaderMap TakeHeaders(std::string_view& rest) {
    HeaderMap headers;
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (line.empty()) break;
        const size_t colon = std::min(line.find(": "), line.size());
        headers.emplace(line.substr(0, colon), line.substr(std::min(colon + 2, line.size())));
    }
    return headers;
}

uint8_t TakeByte(std::string_view& rest) {
    if (rest.empty()) return 0;
    const auto byte = static_cast<uint8_t>(rest.front());
    rest.remove_prefix(1);
    return byte;
}

void CheckAddress(const std::string& text) {
    const std::string stream = StreamOfStore(text);
    Require(stream.empty() || (IsStreamName(stream) && RelayStore(stream) == text));
    try {
        const RelayAddress address = ParseRelayAddress(text);
        Require(!address.servers.empty() && (address.name.empty() || IsStreamName(address.name)));
        for (const std::string& server : address.servers)
            Require(IsRelayAddress(server));
    } catch (const std::runtime_error&) {
        // said so
    }
}

// What is in range, and what an edge prints, is read as the same.
void CheckNote(const RelayNote& note) {
    Require(note.time_scale > 0 && note.pieces > 0 && note.pieces <= kMaxRelayPieces && note.piece < note.pieces &&
            note.since_key <= note.number);
    HeaderMap printed;
    for (const auto& [name, value] : PrintNote(note))
        printed.emplace(name, value);
    RelayNote again;
    Require(ParseHeaders(printed, again));
    Require(again.origin == note.origin && again.number == note.number && again.since_key == note.since_key &&
            again.piece == note.piece && again.pieces == note.pieces && again.time_scale == note.time_scale &&
            again.dts == note.dts && again.pts == note.pts && again.duration == note.duration &&
            again.arrival_us == note.arrival_us && again.samples_per_sec == note.samples_per_sec);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    if (TakeByte(rest) == 0) {
        CheckAddress(std::string(rest));
        return 0;
    }
    UnitReader reader;
    RelayNote last;
    bool others = true;  // another origin's message came since the last unit
    RelayInbox inbox([&](const RelayNote& note, std::vector<uint8_t>&& unit) {
        Require(others || note.number > last.number);
        Require(unit.size() <= kMaxRelayFrame);
        last = note;
        others = false;
        const auto frame = reader.Read(unit, note);
        if (!frame) return;
        Require(frame->time_scale > 0 && frame->media.codec != 0);
        Require(frame->IsVideo() || frame->media.samples_per_sec > 0);
    });
    int64_t now_us = 0;
    while (!rest.empty()) {
        RelayMessage message;
        const bool good = ParseHeaders(TakeHeaders(rest), message.note);
        now_us += int64_t{TakeByte(rest)} * 100000;
        const size_t low = TakeByte(rest);
        const std::string_view payload = rest.substr(0, low | size_t{TakeByte(rest)} << 8);
        rest.remove_prefix(payload.size());
        if (!good) {
            if (message.note.origin.empty()) inbox.Gap();
            continue;
        }
        CheckNote(message.note);
        message.bytes.assign(payload.begin(), payload.end());
        others = others || message.note.origin != last.origin;
        inbox.Take(std::move(message), now_us);
    }
    return 0;
}
