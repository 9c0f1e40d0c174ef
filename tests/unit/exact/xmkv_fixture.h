// A Matroska stream with exact times, and a reader of what comes of it.
#pragma once

#include <gtest/gtest.h>

#include <bit>

#include "exact/xmkv_packet.h"
#include "exact_stream.h"
#include "support/pes_reader.h"

namespace Orvane::Muxora::XmkvTest {

using test::Bytes;
using test::ByteVector;
using test::ExactStream;
using test::ReadBE;
using test::Slice;
using test::operator+;

inline constexpr uint64_t kUnknown = 0x00FFFFFFFFFFFFFF;

// An element of EBML, read by RFC 8794: masters of Matroska with their children.
struct Element {
    uint32_t id = 0;
    size_t position = 0;
    size_t data = 0;    // where its value begins
    uint64_t size = 0;  // kUnknown: up to the next one of its kind
    ByteVector value;
    std::vector<Element> children;

    uint64_t UInt() const {
        uint64_t number = 0;
        for (const uint8_t byte : value)
            number = number << 8 | byte;
        return number;
    }
    double Float() const { return std::bit_cast<double>(UInt()); }
    std::vector<const Element*> All(uint32_t wanted) const {
        std::vector<const Element*> found;
        for (const Element& child : children) {
            if (child.id == wanted) found.push_back(&child);
        }
        return found;
    }
    const Element& One(uint32_t wanted) const {
        const auto found = All(wanted);
        test::Require(found.size() == 1, "one element of that ID");
        return *found[0];
    }
    bool Has(uint32_t wanted) const { return !All(wanted).empty(); }
};

inline bool IsMaster(uint32_t id) {
    for (const uint32_t master : {0x1A45DFA3u, 0x18538067u, 0x114D9B74u, 0x4DBBu, 0x1549A966u, 0x1654AE6Bu, 0xAEu,
                                  0xE0u, 0xE1u, 0x55B0u, 0x7670u, 0x1F43B675u, 0xA0u, 0x1C53BB6Bu, 0xBBu, 0xB7u}) {
        if (id == master) return true;
    }
    return false;
}

// The elements from `at` to `end`. In a master of unknown size the next Cluster ends it.
inline std::vector<Element> Read(const ByteVector& file, size_t& at, size_t end, uint32_t parent) {
    std::vector<Element> elements;
    while (at < end) {
        Element element;
        element.position = at;
        const auto length = [&](size_t place) {
            return static_cast<size_t>(std::countl_zero(static_cast<uint8_t>(ReadBE(file, place, 1)))) + 1;
        };
        const size_t id_length = length(at);
        element.id = ReadBE(file, at, id_length);
        if (parent == 0x1F43B675 && (element.id == 0x1F43B675 || element.id == 0x1C53BB6B)) break;
        const size_t size_length = length(at + id_length);
        uint64_t size = 0;
        for (const uint8_t byte : Slice(file, at + id_length, size_length))
            size = size << 8 | byte;
        element.size = size & ((uint64_t{1} << 7 * size_length) - 1);
        at += id_length + size_length;
        element.data = at;
        const bool unknown = size_length == 8 && element.size == kUnknown;
        const size_t stop = unknown ? end : at + element.size;
        test::Require(stop <= end, "an element within its parent");
        if (IsMaster(element.id)) {
            element.children = Read(file, at, stop, element.id);
            test::Require(unknown || at == stop, "children that fill their parent");
        } else {
            element.value = Slice(file, at, stop - at);
            at = stop;
        }
        elements.push_back(std::move(element));
    }
    return elements;
}

inline Element ReadFile(const ByteVector& file) {
    Element root;
    size_t at = 0;
    root.children = Read(file, at, file.size(), 0);
    test::Require(root.children.size() == 2, "EBML and Segment");
    return root;
}

struct XmkvPacket : testing::Test, test::BaselinePictures {
    std::unique_ptr<ExactStream> stream = ExactStream::Of<CXmkvPacket>(MX_FORMAT_XMKV);

    Element Segment() const { return ReadFile(stream->File()).One(0x18538067); }
    const Element& Track(const Element& segment, size_t number) {
        return *segment.One(0x1654AE6B).All(0xAE).at(number);
    }
};

}  // namespace Orvane::Muxora::XmkvTest
