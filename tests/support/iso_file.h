// Reads an ISO base media file for tests: a walker of its own, that shares nothing with the writer. Whatever does not
// fit (a box that does not end with its parent, a table that is shorter than it says) throws.
#pragma once

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/hex.h"

namespace test {

class IsoFile {
  public:
    struct Box {
        std::string type;
        size_t begin;    // of the header
        size_t payload;  // of the payload
        size_t end;
        std::vector<Box> children;
    };

    explicit IsoFile(ByteVector file) : bytes_(std::move(file)), boxes_(Walk(0, bytes_.size())) {}

    const ByteVector& Bytes() const { return bytes_; }
    const std::vector<Box>& Boxes() const { return boxes_; }
    // The types at the top of the file, one after the other: "ftyp free mdat moov".
    std::string Layout() const { return Types(boxes_); }
    static std::string Types(const std::vector<Box>& boxes) {
        std::string out;
        for (const Box& box : boxes)
            out += (out.empty() ? "" : " ") + box.type;
        return out;
    }

    // By a path such as "moov/trak:1/mdia": the number chooses among brothers of one type, from 0.
    const Box& At(const std::string& path) const {
        const Box* box = Find(path);
        if (box == nullptr) throw std::out_of_range("no box " + path);
        return *box;
    }
    bool Has(const std::string& path) const { return Find(path) != nullptr; }
    ByteVector Whole(const std::string& path) const {
        const Box& box = At(path);
        return Slice(bytes_, box.begin, box.end - box.begin);
    }
    ByteVector Payload(const std::string& path) const {
        const Box& box = At(path);
        return Slice(bytes_, box.payload, box.end - box.payload);
    }
    size_t Size(const std::string& path) const { return At(path).end - At(path).begin; }
    uint64_t Number(const std::string& path, size_t offset, size_t width) const {
        const Box& box = At(path);
        if (offset + width > box.end - box.payload) throw std::out_of_range("field behind the end of " + path);
        return BE(box.payload + offset, width);
    }

    static std::string Table(size_t track, const std::string& table) {
        return "moov/trak:" + std::to_string(track) + "/mdia/minf/stbl/" + table;
    }
    size_t TrackCount() const {
        const auto& moov = At("moov").children;
        return static_cast<size_t>(
            std::count_if(moov.begin(), moov.end(), [](const Box& box) { return box.type == "trak"; }));
    }
    std::vector<uint64_t> Sizes(size_t track) const { return Column(Table(track, "stsz"), 8, 12, 4); }
    std::vector<uint64_t> Offsets(size_t track) const {
        if (Has(Table(track, "co64"))) return Column(Table(track, "co64"), 4, 8, 8);
        return Column(Table(track, "stco"), 4, 8, 4);
    }
    std::vector<uint64_t> SyncSamples(size_t track) const { return Column(Table(track, "stss"), 4, 8, 4); }
    // (sample_count, sample_delta)
    std::vector<std::pair<uint64_t, uint64_t>> Runs(size_t track) const {
        std::vector<std::pair<uint64_t, uint64_t>> out;
        for (const uint64_t run : Column(Table(track, "stts"), 4, 8, 8))
            out.emplace_back(run >> 32, run & 0xFFFFFFFF);
        return out;
    }
    // The samples of a track as its tables tell. The tables must agree on their number.
    std::vector<ByteVector> Samples(size_t track) const {
        const auto sizes = Sizes(track);
        const auto offsets = Offsets(track);
        uint64_t timed = 0;
        for (const auto& run : Runs(track))
            timed += run.first;
        if (sizes.size() != offsets.size() || timed != sizes.size()) throw std::out_of_range("tables disagree");
        std::vector<ByteVector> out;
        for (size_t i = 0; i < sizes.size(); ++i)
            out.push_back(Slice(bytes_, static_cast<size_t>(offsets[i]), static_cast<size_t>(sizes[i])));
        return out;
    }

  private:
    uint64_t BE(size_t at, size_t width) const {
        if (at > bytes_.size() || width > bytes_.size() - at) throw std::out_of_range("field behind the end");
        uint64_t value = 0;
        for (size_t i = 0; i < width; ++i)
            value = value << 8 | bytes_[at + i];
        return value;
    }

    // The rows of a table: `head` bytes, among them the number of rows at `count_at`, then rows of `width` bytes.
    std::vector<uint64_t> Column(const std::string& path, size_t count_at, size_t head, size_t width) const {
        const uint64_t count = Number(path, count_at, 4);
        const Box& box = At(path);
        if (head + count * width != box.end - box.payload) {
            throw std::out_of_range("rows and size of " + path + " disagree");
        }
        std::vector<uint64_t> out;
        for (uint64_t i = 0; i < count; ++i)
            out.push_back(Number(path, head + static_cast<size_t>(i) * width, width));
        return out;
    }

    // Bytes between a box's header and its first child; -1 if it holds none.
    int64_t FieldsOf(const Box& box) const {
        static const char* const kPlain[] = {"moov", "trak", "mdia", "minf", "dinf", "stbl", "wave"};
        for (const char* type : kPlain) {
            if (box.type == type) return 0;
        }
        if (box.type == "stsd" || box.type == "dref") return 8;
        if (box.type == "avc1" || box.type == "hev1" || box.type == "mp4v" || box.type == "jpeg") return 78;
        if (box.type == "mp4a" && box.end - box.payload >= 28) return BE(box.payload + 8, 2) == 1 ? 44 : 28;
        return -1;
    }

    std::vector<Box> Walk(size_t begin, size_t end) const {
        std::vector<Box> out;
        for (size_t at = begin; at < end;) {
            Box box{"", at, at + 8, 0, {}};
            uint64_t size = BE(at, 4);
            for (size_t i = 4; i < 8; ++i)
                box.type += static_cast<char>(BE(at + i, 1));
            if (size == 1) {
                size = BE(at + 8, 8);
                box.payload += 8;
            }
            if (size < box.payload - at || size > end - at) throw std::out_of_range("size of box " + box.type);
            box.end = at + static_cast<size_t>(size);
            const int64_t fields = FieldsOf(box);
            if (fields >= 0) box.children = Walk(box.payload + static_cast<size_t>(fields), box.end);
            at = box.end;
            out.push_back(std::move(box));
        }
        return out;
    }

    const Box* Find(const std::string& path) const {
        const std::vector<Box>* level = &boxes_;
        const Box* found = nullptr;
        for (size_t at = 0; at < path.size();) {
            const size_t stop = std::min(path.find('/', at), path.size());
            std::string name = path.substr(at, stop - at);
            size_t number = 0;
            if (const size_t colon = name.find(':'); colon != std::string::npos) {
                number = std::stoul(name.substr(colon + 1));
                name.resize(colon);
            }
            found = nullptr;
            for (const Box& box : *level) {
                if (box.type == name && number-- == 0) {
                    found = &box;
                    break;
                }
            }
            if (found == nullptr) return nullptr;
            level = &found->children;
            at = stop + 1;
        }
        return found;
    }

    ByteVector bytes_;
    std::vector<Box> boxes_;
};

}  // namespace test
