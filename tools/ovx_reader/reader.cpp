#include "ovx_reader/reader.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

namespace Orvane::OvxReader {

namespace {

constexpr char kHeadTag[] = {'O', 'R', 'V', 'X'};
constexpr char kTailTag[] = {'o', 'r', 'v', 'x'};
constexpr size_t kTagSize = 4;
constexpr size_t kLengthAt = 12;
constexpr size_t kChecksumAt = kHeadSize - 1;
constexpr uint64_t kEffort = 16;
constexpr size_t kSmallestUnit = kHeadSize + kTailSize;

bool HasTag(ByteSpan bytes, const char (&tag)[kTagSize]) {
    return bytes.size() >= kTagSize && std::memcmp(bytes.data(), tag, kTagSize) == 0;
}

}  // namespace

std::optional<Piece> Reader::Next() {
    if (pending_.empty() && at_ < bytes_.size()) {
        if (const auto head = UnitAt(at_)) {
            Piece piece = UnitPiece(at_, *head);
            at_ += head->length;
            return piece;
        }
        const size_t begin = at_;
        at_ = FindUnit(begin + 1);
        ExplainDamage(begin, at_);
    }
    if (pending_.empty()) return std::nullopt;
    const Piece piece = PieceAt(pending_.front());
    pending_.pop_front();
    return piece;
}

Piece Reader::PieceAt(const Place& place) const {
    const size_t end = place.offset + place.length;
    if (place.kind == Place::kLost) return LostPiece(place.offset, end);
    // What the explanation saw stands there still, but for a file that shrinks under its mapping.
    Piece piece;
    if (place.kind == Place::kUnit) {
        if (const auto head = HeadAt(place.offset)) piece = UnitPiece(place.offset, *head);
    } else if (const auto length = TailBefore(end); length && *length <= end + kHeadSize) {
        piece = HeadlessPiece(end, *length);
    }
    if (!piece.is_unit) return LostPiece(place.offset, end);
    piece.offset = place.offset;
    piece.length = place.length;
    return piece;
}

std::optional<Head> Reader::HeadAt(size_t offset) const {
    if (offset > bytes_.size() || bytes_.size() - offset < kHeadSize) return std::nullopt;
    const ByteSpan bytes = bytes_.subspan(offset, kHeadSize);
    if (!HasTag(bytes, kHeadTag)) return std::nullopt;
    const auto sum = std::accumulate(bytes.begin(), bytes.begin() + kChecksumAt, 0u);
    if (static_cast<uint8_t>(sum) != bytes[kChecksumAt]) return std::nullopt;
    Head head;
    head.kind = bytes[4];
    head.sub_kind = bytes[5];
    head.channel = bytes[6];
    head.sub_channel = bytes[7];
    head.sequence = Load32(&bytes[8]);
    head.length = Load32(&bytes[kLengthAt]);
    head.date = Load32(&bytes[16]);
    head.timestamp = Load16(&bytes[20]);
    head.extension_length = bytes[22];
    if (head.length < kSmallestUnit + head.extension_length) return std::nullopt;
    return head;
}

std::optional<uint32_t> Reader::TailBefore(size_t end) const {
    if (end < kTailSize) return std::nullopt;
    const ByteSpan bytes = bytes_.subspan(end - kTailSize, kTailSize);
    if (!HasTag(bytes, kTailTag)) return std::nullopt;
    const uint32_t length = Load32(&bytes[4]);
    if (length < kSmallestUnit) return std::nullopt;
    return length;
}

std::optional<Head> Reader::UnitAt(size_t offset) const {
    const auto head = HeadAt(offset);
    if (!head || head->length > bytes_.size() - offset || TailBefore(offset + head->length) != head->length) {
        return std::nullopt;
    }
    return head;
}

size_t Reader::FindTag(size_t from, size_t end) const {
    while (from < end) {
        const void* const found = std::memchr(bytes_.data() + from, kHeadTag[0], end - from);
        if (found == nullptr) break;
        from = static_cast<size_t>(static_cast<const uint8_t*>(found) - bytes_.data());
        if (HasTag(bytes_.subspan(from), kHeadTag)) return from;
        ++from;
    }
    return end;
}

size_t Reader::FindUnit(size_t from) const {
    while (from < bytes_.size() && !UnitAt(from))
        from = FindTag(from + 1, bytes_.size());
    return from;
}

Piece Reader::UnitPiece(size_t offset, const Head& head) const {
    const ByteSpan body = bytes_.subspan(offset + kHeadSize, head.length - kSmallestUnit);
    Piece piece;
    piece.offset = offset;
    piece.length = std::min<uint64_t>(head.length, bytes_.size() - offset);
    piece.is_unit = true;
    piece.head = head;

    const auto split = [&](size_t extension_size) {
        piece.extension = Extension(body.first(extension_size));
        piece.frame = body.subspan(extension_size);
        piece.check = CheckData(piece.extension, piece.frame);
    };
    split(head.extension_length);
    if (head.extension_length == 0 && body.size() >= kFullExtensionSize) {
        // Either there are no records, or there are 256 bytes of them, with a data check that proves it.
        split(kFullExtensionSize);
        if (!piece.extension.Intact() || piece.check != Check::kRight) split(0);
    }
    if (!piece.extension.Intact()) piece.damage |= kDamagedExtension;
    if (piece.check == Check::kWrong) piece.damage |= kDamagedFrame;
    if (TailBefore(offset + piece.length) != head.length) piece.damage |= kDamagedTail;
    return piece;
}

Piece Reader::HeadlessPiece(size_t end, uint32_t length) const {
    const size_t body_size = length - kSmallestUnit;
    const ByteSpan body = bytes_.subspan(end - kTailSize - body_size, body_size);
    Piece piece;
    piece.offset = end - length;  // below 0 when the head is gone; the caller sees to it
    piece.length = length;
    piece.is_unit = true;
    piece.damage = kDamagedHead;

    ByteSpan rest = body;
    for (bool checked = false; const auto record = TakeRecord(rest);) {
        const size_t size = body.size() - rest.size();
        if (size > kFullExtensionSize) break;
        checked = checked || record->tag == kDataCheck;
        if (!checked) continue;
        const Extension extension(body.first(size));
        if (CheckData(extension, rest) != Check::kRight) continue;
        piece.extension = extension;
        piece.frame = rest;
        piece.check = Check::kRight;
        break;
    }
    return piece;
}

Piece Reader::LostPiece(size_t offset, size_t end) const {
    Piece piece;
    piece.offset = offset;
    piece.length = end - offset;
    if (const auto head = HeadAt(offset)) piece.head_length = head->length;
    if (piece.length >= kTailSize) piece.tail_length = TailBefore(end).value_or(0);
    return piece;
}

// Do more than a tail's length say that a unit begins here?
bool Reader::BeginsUnit(size_t offset, uint32_t length) const {
    return TailBefore(offset) || HasTag(bytes_.subspan(offset), kHeadTag) ||
           Load32(&bytes_[offset + kLengthAt]) == length;
}

// Forward, from head to head: units whose tail is damaged. Either they end where something else begins, or the data
// check proves that the frame is all there.
void Reader::ExplainDamage(size_t begin, size_t end) {
    size_t unexplained = begin;
    uint64_t effort = kEffort * (end - begin);  // for the data checks, so that crafted heads can't take for ever
    for (size_t at = begin; at < end;) {
        const auto head = HeadAt(at);
        if (head && head->length - kTailSize <= end - at && head->length <= effort) {
            effort -= head->length;
            const Piece piece = UnitPiece(at, *head);
            const size_t unit_end = at + head->length;
            if (piece.check == Check::kRight || unit_end == end || (unit_end < end && HeadAt(unit_end))) {
                ExplainHeadless(unexplained, at);
                const uint64_t length = std::min(unit_end, end) - at;
                pending_.push_back({at, length, Place::kUnit});
                unexplained = at += length;
                continue;
            }
        }
        at = FindTag(at + 1, end);
    }
    ExplainHeadless(unexplained, end);
}

// Backward, from tail to tail: units whose head is damaged, or gone up to the records.
void Reader::ExplainHeadless(size_t begin, size_t end) {
    std::vector<Place> backward;
    while (begin < end) {
        const auto length = TailBefore(end);
        if (!length || *length - kHeadSize > end - begin) break;
        Piece piece = HeadlessPiece(end, *length);
        const bool whole = *length <= end - begin && (end - *length == begin || BeginsUnit(end - *length, *length));
        if (!whole) {
            if (piece.check != Check::kRight) break;
            piece.offset += kHeadSize;
            piece.length -= kHeadSize;
        }
        end = piece.offset;
        backward.push_back({piece.offset, piece.length, Place::kHeadless});
    }
    if (begin < end) pending_.push_back({begin, end - begin, Place::kLost});
    pending_.insert(pending_.end(), backward.rbegin(), backward.rend());
}

}  // namespace Orvane::OvxReader
