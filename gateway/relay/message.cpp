#include "relay/message.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "bounds.h"
#include "hub/stream_name.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr const char* kOrigin = "Muxora-Origin";
constexpr const char* kNumber = "Muxora-Number";
constexpr const char* kSinceKey = "Muxora-Since-Key";
constexpr const char* kPiece = "Muxora-Piece";  // "1/3" is the first of three; only where there are more than one
constexpr const char* kTimeScale = "Muxora-Time-Scale";
constexpr const char* kDts = "Muxora-Dts";
constexpr const char* kPts = "Muxora-Pts";
constexpr const char* kDuration = "Muxora-Duration";
constexpr const char* kArrival = "Muxora-Arrival";
constexpr const char* kSampleRate = "Muxora-Sample-Rate";  // of sound only
// JetStream keeps one message of a name.
constexpr const char* kMessageId = "Nats-Msg-Id";

constexpr std::string_view kSubjectStart = "muxora.";
constexpr std::string_view kStoreStart = "muxora-";
constexpr size_t kOriginSize = 16;

// Sums of two stay in their type.
constexpr int64_t kFurthestTime = int64_t{1} << 61;

template <typename Number>
bool Parse(const char* text, Number& number, Number least = std::numeric_limits<Number>::min(),
           Number most = std::numeric_limits<Number>::max()) {
    if (text == nullptr) return false;
    const char* end = text + std::strlen(text);
    const auto [at, error] = std::from_chars(text, end, number);
    return error == std::errc() && at == end && number >= least && number <= most;
}

bool ParsePiece(const char* text, RelayNote& note) {
    if (text == nullptr) return true;
    const char* slash = std::strchr(text, '/');
    if (slash == nullptr || !Parse(slash + 1, note.pieces, 1u, kMaxRelayPieces)) return false;
    uint32_t piece = 0;
    if (!Parse(std::string(text, slash).c_str(), piece, 1u, note.pieces)) return false;
    note.piece = piece - 1;
    return true;
}

bool IsOrigin(const char* text) {
    return text != nullptr && std::strlen(text) == kOriginSize && std::strspn(text, "0123456789abcdef") == kOriginSize;
}

}  // namespace

RelayHeaders PrintNote(const RelayNote& note) {
    RelayHeaders headers = {
        {kMessageId, note.origin + "-" + std::to_string(note.number)},
        {kOrigin, note.origin},
        {kNumber, std::to_string(note.number)},
        {kSinceKey, std::to_string(note.since_key)},
        {kTimeScale, std::to_string(note.time_scale)},
        {kDts, std::to_string(note.dts)},
        {kPts, std::to_string(note.pts)},
        {kDuration, std::to_string(note.duration)},
        {kArrival, std::to_string(note.arrival_us)},
    };
    if (note.pieces > 1) {
        headers.emplace_back(kPiece, std::to_string(note.piece + 1) + "/" + std::to_string(note.pieces));
    }
    if (note.samples_per_sec != 0) headers.emplace_back(kSampleRate, std::to_string(note.samples_per_sec));
    return headers;
}

bool ParseNote(const std::function<const char*(const char*)>& find, RelayNote& note) {
    note = {};
    const char* origin = find(kOrigin);
    if (!IsOrigin(origin)) return false;
    note.origin = origin;
    const char* rate = find(kSampleRate);
    const auto time = [&find](const char* name, int64_t& value) {
        return Parse(find(name), value, -kFurthestTime, kFurthestTime);
    };
    return Parse(find(kNumber), note.number) && Parse(find(kSinceKey), note.since_key) &&
           note.since_key <= note.number && ParsePiece(find(kPiece), note) &&
           Parse(find(kTimeScale), note.time_scale, 1u) && time(kDts, note.dts) && time(kPts, note.pts) &&
           time(kDuration, note.duration) && time(kArrival, note.arrival_us) &&
           (rate == nullptr || Parse(rate, note.samples_per_sec));
}

std::string OriginName(int64_t now_us, uint32_t chance) {
    constexpr int kChanceBits = 12;
    char text[kOriginSize + 1];
    std::snprintf(text, sizeof text, "%016llx",
                  static_cast<unsigned long long>(now_us) << kChanceBits | (chance & ((1u << kChanceBits) - 1)));
    return text;
}

std::string RelaySubject(const std::string& stream) {
    return std::string(kSubjectStart) + stream;
}

std::string RelayStore(const std::string& stream) {
    return std::string(kStoreStart) + stream;
}

std::string StreamOfStore(const std::string& store) {
    if (store.compare(0, kStoreStart.size(), kStoreStart) != 0) return "";
    std::string stream = store.substr(kStoreStart.size());
    return IsStreamName(stream) ? stream : "";
}

bool IsRelayAddress(const std::string& text) {
    return text.compare(0, 7, "nats://") == 0 || text.compare(0, 6, "tls://") == 0;
}

RelayAddress ParseRelayAddress(const std::string& text) {
    RelayAddress address;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        std::string server = text.substr(begin, end - begin);
        begin = end + 1;
        if (!IsRelayAddress(server)) throw std::runtime_error("an address of a relay is nats://HOST:PORT");
        const size_t path = server.find('/', server.find("://") + 3);
        if (path != std::string::npos) {
            const std::string name = server.substr(path + 1);
            server.resize(path);
            if (!name.empty()) {
                if (!IsStreamName(name)) throw std::runtime_error("that is no name of a published stream");
                address.name = name;
            }
        }
        if (server.back() == '/') throw std::runtime_error("an address of a relay is nats://HOST:PORT");
        address.servers.push_back(std::move(server));
    }
    return address;
}

}  // namespace Orvane::Muxora::Gateway
