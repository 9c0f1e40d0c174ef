#include "units/access_units.h"

#include <algorithm>

namespace Orvane::Muxora {

namespace {

// Of a unit begun in an earlier piece, as much at a time is looked at.
constexpr size_t kStep = 4096;
// What comes to more without an end is no unit of any stream.
constexpr size_t kLargestUnit = 64u << 20;
constexpr uint8_t kLongStartCode[] = {0, 0, 0, 1};

bool BeginsWithStartCode(std::span<const uint8_t> nal) {
    const size_t zeros = nal.size() > 3 && nal[2] == 0 ? 3 : 2;
    return nal.size() > zeros && nal[0] == 0 && nal[1] == 0 && nal[zeros] == 1;
}

}  // namespace

uint32_t AccessUnits::PutBytes(const void* data, uint32_t length) {
    if (data == nullptr || !piece_.empty()) return MX_FAILED;
    piece_ = {static_cast<const uint8_t*>(data), length};
    borrowed_ = 0;
    end_ = BytesEnd::kOpen;
    return MX_OK;
}

uint32_t AccessUnits::PutNal(const void* nal, uint32_t length) {
    if (nal == nullptr || length == 0 || !piece_.empty() || frame_type_ != MX_FRAME_VIDEO) return MX_FAILED;
    const std::span<const uint8_t> bytes(static_cast<const uint8_t*>(nal), length);
    borrowed_ = 0;
    const bool kept = (BeginsWithStartCode(bytes) || kept_.Append(kLongStartCode)) && kept_.Append(bytes);
    if (!kept) {
        OutOfMemory();
        return MX_NO_RESOURCES;
    }
    end_ = BytesEnd::kNal;
    return MX_OK;
}

uint32_t AccessUnits::End() {
    if (!piece_.empty()) return MX_FAILED;
    end_ = BytesEnd::kStream;
    return MX_OK;
}

uint32_t AccessUnits::Get(MXAccessUnit& out) {
    std::span<const uint8_t> unit;
    Look look = Look::kAgain;
    while (look == Look::kAgain)
        look = kept_.Size() == 0 ? LookInPiece(unit) : LookInKept(unit);
    if (look == Look::kNothing) {
        if (end_ == BytesEnd::kStream) end_ = BytesEnd::kOpen;
        return MX_NO_UNIT;
    }
    if (look == Look::kNoMemory || (long_codes_ && !RewriteStartCodes(unit))) return MX_NO_RESOURCES;

    const UnitInfo& info = cutter_->Info();
    out.data = unit.data();
    out.length = static_cast<uint32_t>(unit.size());
    out.frame_type = frame_type_;
    out.encode_type = encode_type_;
    out.key_frame = info.key_frame ? 1 : 0;
    out.picture_kind = info.picture_kind;
    const uint32_t other = info.picture_kind == MX_SUB_B ? MX_SUB_B : MX_SUB_P;
    out.frame_sub_type = info.key_frame ? uint32_t{MX_SUB_I} : other;
    out.field = info.field;
    out.width = info.width;
    out.height = info.height;
    out.rate_numerator = info.rate_numerator;
    out.rate_denominator = info.rate_denominator;
    out.samples_per_sec = info.samples_per_sec;
    out.channels = info.channels;
    out.samples = info.samples;
    return MX_OK;
}

// Nothing is kept: what lies in the piece as a whole is given where it lies.
AccessUnits::Look AccessUnits::LookInPiece(std::span<const uint8_t>& unit) {
    if (piece_.empty()) return Look::kNothing;
    if (const std::optional<UnitCut> cut = cutter_->Next(piece_, BytesEnd::kOpen)) {
        unit = piece_.subspan(cut->skipped, cut->length);
        piece_ = piece_.subspan(cut->skipped + cut->length);
        return cut->length != 0 ? Look::kUnit : Look::kAgain;
    }
    const std::span<const uint8_t> rest = std::exchange(piece_, {});
    kept_.Clear();
    if (rest.size() > kLargestUnit) {
        cutter_->Restart();
        return Look::kNothing;
    }
    return kept_.Append(rest) ? Look::kNothing : OutOfMemory();
}

AccessUnits::Look AccessUnits::LookInKept(std::span<const uint8_t>& unit) {
    const std::span<const uint8_t> bytes = kept_.Bytes();
    const std::optional<UnitCut> cut = cutter_->Next(bytes, piece_.empty() ? end_ : BytesEnd::kOpen);
    if (!cut) {
        if (bytes.size() > kLargestUnit) {
            kept_.Clear();
            cutter_->Restart();
            return Look::kAgain;
        }
        if (piece_.empty()) {
            borrowed_ = 0;
            return Look::kNothing;
        }
        const std::span<const uint8_t> more = piece_.first(std::min(piece_.size(), kStep));
        if (!kept_.Append(more)) return OutOfMemory();
        piece_ = piece_.subspan(more.size());
        borrowed_ += more.size();
        return Look::kAgain;
    }
    unit = bytes.subspan(cut->skipped, cut->length);
    kept_.Take(cut->skipped + cut->length);
    // What is left stands in the caller's piece too: the search goes on there.
    if (kept_.Size() != 0 && kept_.Size() <= borrowed_) {
        piece_ = {piece_.data() - kept_.Size(), piece_.size() + kept_.Size()};
        kept_.Take(kept_.Size());
    }
    if (kept_.Size() == 0) borrowed_ = 0;
    return cut->length != 0 ? Look::kUnit : Look::kAgain;
}

AccessUnits::Look AccessUnits::OutOfMemory() {
    kept_.Clear();
    piece_ = {};
    cutter_->Restart();
    return Look::kNoMemory;
}

// Puts a zero in front of each short start code. The unit stays where it is when it has none.
bool AccessUnits::RewriteStartCodes(std::span<const uint8_t>& unit) {
    const std::span<const size_t> short_codes = cutter_->ShortStartCodes();
    if (short_codes.empty()) return true;
    rewritten_.Clear();
    size_t from = 0;
    for (const size_t code : short_codes) {
        const bool copied =
            rewritten_.Append(unit.subspan(from, code - from)) && rewritten_.Append(std::span(kLongStartCode).first(1));
        if (!copied) return false;
        from = code;
    }
    if (!rewritten_.Append(unit.subspan(from))) return false;
    unit = rewritten_.Bytes();
    return true;
}

}  // namespace Orvane::Muxora
