#include "streaming/codec_string.h"

#include <cstdio>
#include <string_view>

namespace Orvane::Muxora::Streaming {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kBoxHead = 8;

uint32_t Number(Bytes bytes, size_t at) {
    return static_cast<uint32_t>(bytes[at]) << 24 | static_cast<uint32_t>(bytes[at + 1]) << 16 |
           static_cast<uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

// The content of the first box of that type among those that lie one behind the other; empty: none.
Bytes Child(Bytes boxes, std::string_view type) {
    while (boxes.size() >= kBoxHead) {
        const size_t size = Number(boxes, 0);
        if (size < kBoxHead || size > boxes.size()) return {};
        if (std::string_view(reinterpret_cast<const char*>(boxes.data()) + 4, 4) == type) {
            return boxes.subspan(kBoxHead, size - kBoxHead);
        }
        boxes = boxes.subspan(size);
    }
    return {};
}

// RFC 6381 3.3.
std::string Avc(const std::string& entry, Bytes config) {
    if (config.size() < 4) return entry;
    char text[16];
    std::snprintf(text, sizeof text, ".%02x%02x%02x", config[1], config[2], config[3]);
    return entry + text;
}

// ISO/IEC 14496-15 E.3.
std::string Hevc(const std::string& entry, Bytes config) {
    if (config.size() < 13) return entry;
    static constexpr const char* kSpaces[] = {"", "A", "B", "C"};
    uint32_t compatible = 0;
    for (int bit = 0; bit < 32; ++bit)
        compatible |= (Number(config, 2) >> bit & 1) << (31 - bit);
    char text[64];
    std::snprintf(text, sizeof text, ".%s%u.%X.%c%u", kSpaces[config[1] >> 6], config[1] & 31u, compatible,
                  (config[1] & 0x20) != 0 ? 'H' : 'L', config[12]);
    std::string all = entry + text;
    size_t last = 12;
    while (last > 6 && config[last - 1] == 0)
        --last;
    for (size_t i = 6; i < last; ++i) {
        std::snprintf(text, sizeof text, ".%X", config[i]);
        all += text;
    }
    return all;
}

// ISO/IEC 14496-1 7.2.6: the object type, and for MPEG-4 audio what the AudioSpecificConfig begins with.
std::string Mp4a(const std::string& entry, Bytes esds) {
    const auto skip_length = [&esds](size_t at) {
        while (at < esds.size() && (esds[at] & 0x80) != 0)
            ++at;
        return at + 1;
    };
    size_t at = 4;  // version and flags
    if (at >= esds.size() || esds[at] != 3) return entry;
    at = skip_length(at + 1) + 3;  // ES_ID and flags
    if (at >= esds.size() || esds[at] != 4) return entry;
    at = skip_length(at + 1);
    if (at >= esds.size()) return entry;
    const uint8_t object = esds[at];
    char text[16];
    std::snprintf(text, sizeof text, ".%02X", object);
    std::string all = entry + text;
    at += 13;
    if (object != 0x40 || at >= esds.size() || esds[at] != 5) return all;
    at = skip_length(at + 1);
    return at < esds.size() ? all + "." + std::to_string(esds[at] >> 3) : all;
}

}  // namespace

std::string CodecString(Bytes init) {
    Bytes box = init;
    for (const char* type : {"moov", "trak", "mdia", "minf", "stbl", "stsd"})
        box = Child(box, type);
    constexpr size_t kEntriesAt = 8;
    if (box.size() < kEntriesAt + kBoxHead) return {};
    const Bytes entries = box.subspan(kEntriesAt);
    std::string entry(reinterpret_cast<const char*>(entries.data()) + 4, 4);
    const Bytes body = Child(entries, entry);
    // ISO/IEC 14496-12 12.1.3 and 12.2.3: the boxes stand behind the fixed fields.
    constexpr size_t kVisual = 78;
    constexpr size_t kAudio = 28;
    if (body.size() > kVisual) {
        const Bytes inner = body.subspan(kVisual);
        if (const Bytes config = Child(inner, "avcC"); !config.empty()) return Avc(entry, config);
        if (const Bytes config = Child(inner, "hvcC"); !config.empty()) return Hevc(entry, config);
    }
    if (body.size() > kAudio) {
        if (const Bytes esds = Child(body.subspan(kAudio), "esds"); !esds.empty()) return Mp4a(entry, esds);
    }
    return entry;
}

}  // namespace Orvane::Muxora::Streaming
