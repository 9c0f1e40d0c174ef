#include "ovx_reader/summary.h"

namespace Orvane::OvxReader {

namespace {

std::string Count(uint64_t count, const char* what, const char* plural = "s") {
    return std::to_string(count) + " " + what + (count == 1 ? "" : plural);
}

}  // namespace

void Summary::Add(const Piece& piece) {
    bytes += piece.length;
    if (!piece.is_unit) {
        ++lost_stretches;
        lost_bytes += piece.length;
        return;
    }
    if (!piece.Intact()) {
        ++damaged_units;
        damaged_bytes += piece.length;
    }
    if (piece.extension.Find(kEncrypt)) ++encrypted_units;
    if ((piece.damage & kDamagedHead) != 0) return;
    Stream& stream = piece.head.IsAudio() ? audio : video;
    if (stream.units == 0) {
        stream.first = piece.head.sequence;
    } else if (piece.head.sequence != stream.last + 1) {
        ++stream.jumps;
    }
    stream.last = piece.head.sequence;
    ++stream.units;
}

std::string Summary::DamageText() const {
    std::string text;
    if (damaged_units != 0) {
        text = Count(damaged_units, "damaged unit") + " (" + Count(damaged_bytes, "byte") + ")";
    }
    if (lost_stretches != 0) {
        if (!text.empty()) text += ", ";
        text += Count(lost_stretches, "lost stretch", "es") + " (" + Count(lost_bytes, "byte") + ")";
    }
    return text;
}

std::string DamageText(const Piece& piece) {
    std::string text;
    const auto add = [&](const std::string& part) {
        if (!text.empty()) text += "; ";
        text += part;
    };
    if (piece.is_unit) {
        if ((piece.damage & kDamagedHead) != 0) {
            add(piece.check == Check::kRight ? "a unit whose head is damaged; its frame is right"
                                             : "a unit whose head is damaged");
        }
        if ((piece.damage & kDamagedExtension) != 0) add("its records are damaged");
        if ((piece.damage & kDamagedFrame) != 0) add("its data check is wrong");
        if ((piece.damage & kDamagedTail) != 0) add("its tail is damaged");
        return text;
    }
    if (piece.head_length > piece.length) {
        add("a unit of " + Count(piece.head_length, "byte") + " begins here and is cut");
    } else if (piece.head_length != 0) {
        add("a damaged unit of " + Count(piece.head_length, "byte") + " begins here");
    }
    if (piece.tail_length > piece.length && piece.tail_length != piece.head_length) {
        add("a unit of " + Count(piece.tail_length, "byte") + " ends here and is cut");
    }
    if (text.empty()) add("no unit begins here");
    return text;
}

}  // namespace Orvane::OvxReader
