#include "codec/parameter_sets.h"

#include <algorithm>
#include <tuple>

#include "codec/bit_reader.h"
#include "codec/start_code.h"

namespace Orvane::Muxora {

namespace {

// nal_unit_type (ITU-T H.264 Table 7-1, H.265 Table 7-1).
constexpr uint8_t kAvcSlice = 1;
constexpr uint8_t kAvcIdr = 5;
constexpr uint8_t kAvcSps = 7;
constexpr uint8_t kAvcPps = 8;
constexpr uint8_t kAvcDelimiter = 9;
constexpr uint8_t kHevcLastPicture = 31;
constexpr uint8_t kHevcFirstIrap = 16;
constexpr uint8_t kHevcLastIrap = 23;
constexpr uint8_t kHevcVps = 32;
constexpr uint8_t kHevcSps = 33;
constexpr uint8_t kHevcPps = 34;
constexpr uint8_t kHevcDelimiter = 35;

constexpr uint32_t kLengthSize = 4;
constexpr uint32_t kMostAvcSps = 31;  // numOfSequenceParameterSets has 5 bits
constexpr uint32_t kStartCode = 1;    // in four bytes
constexpr uint8_t kLengthSizeMinusOne = 3;

// The kinds of set that a frame brought.
constexpr uint32_t kVpsBit = 1;
constexpr uint32_t kSpsBit = 2;
constexpr uint32_t kPpsBit = 4;

uint8_t AvcType(uint8_t first) {
    return first & 0x1F;
}

uint8_t HevcType(uint8_t first) {
    return first >> 1 & 0x3F;
}

bool IsPicture(NalCodec codec, uint8_t first) {
    if (codec == NalCodec::kHevc) return HevcType(first) <= kHevcLastPicture;
    return AvcType(first) >= kAvcSlice && AvcType(first) <= kAvcIdr;
}

// The Exp-Golomb value at the beginning of `data`, which never holds an emulation prevention byte there.
uint32_t LeadingUe(std::span<const uint8_t> data) {
    CBitReader bits;
    bits.Init(data.data(), static_cast<uint32_t>(std::min<size_t>(data.size(), 8)));
    return bits.ReadUe();
}

}  // namespace

CParameterSets::Unit CParameterSets::Look(std::span<const uint8_t> nal, FrameNals& found, uint32_t& kinds) {
    if (nal.empty()) return Unit::kOther;
    const bool avc = codec_ == NalCodec::kAvc;
    const uint8_t type = avc ? AvcType(nal[0]) : HevcType(nal[0]);
    if (IsPicture(codec_, nal[0])) {
        found.has_picture = true;
        found.random_access = avc ? type == kAvcIdr : type >= kHevcFirstIrap && type <= kHevcLastIrap;
        return Unit::kPicture;
    }
    if (type == (avc ? kAvcDelimiter : kHevcDelimiter)) {
        found.has_delimiter = true;
        return Unit::kParameters;
    }
    const auto keep = [&](Kind kind, uint32_t bit) {
        kinds |= bit;
        if (Keep(kind, nal)) found.changed = true;
        return Unit::kParameters;
    };
    if (type == (avc ? kAvcSps : kHevcSps)) return keep(Kind::kSps, kSpsBit);
    if (type == (avc ? kAvcPps : kHevcPps)) return keep(Kind::kPps, kPpsBit);
    if (!avc && type == kHevcVps) return keep(Kind::kVps, kVpsBit);
    return Unit::kOther;
}

FrameNals CParameterSets::ScanLengthPrefixed(std::span<const uint8_t> frame) {
    FrameNals found;
    uint32_t kinds = 0;
    changed_ = false;
    const auto size = static_cast<uint32_t>(frame.size());
    for (uint32_t at = 0; size - at >= kLengthSize;) {
        const uint8_t* const p = frame.data() + at;
        const uint32_t length = static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
                                static_cast<uint32_t>(p[2]) << 8 | p[3];
        if (length > size - at - kLengthSize) break;
        const bool leading = found.rest == at;
        const Unit unit = Look({p + kLengthSize, length}, found, kinds);
        if (unit == Unit::kPicture) break;
        at += kLengthSize + length;
        if (leading && unit == Unit::kParameters) found.rest = at;
    }
    found.has_parameter_sets = HasAll(kinds);
    return found;
}

FrameNals CParameterSets::ScanAnnexB(std::span<const uint8_t> frame) {
    FrameNals found;
    uint32_t kinds = 0;
    changed_ = false;
    const uint8_t* const begin = frame.data();
    const uint8_t* const end = begin + frame.size();
    const uint8_t* code = FindStartCode(begin, end);
    found.has_start_code = code != end;
    bool leading = true;
    while (end - code > 3) {
        const uint8_t* const nal = code + 3;
        // A picture's end is of no interest: it is far away, and its line not in a cache yet.
        if (IsPicture(codec_, *nal)) {
            Look({nal, end}, found, kinds);
            break;
        }
        const uint8_t* const next = FindStartCode(nal, end);
        const uint8_t* last = next;
        // trailing_zero_8bits and the zero_byte of the next start code
        while (last - nal > 1 && last[-1] == 0)
            --last;
        const Unit unit = Look({nal, last}, found, kinds);
        leading = leading && unit == Unit::kParameters;
        if (leading) found.rest = static_cast<uint32_t>((next != end && next[-1] == 0 ? next - 1 : next) - begin);
        code = next;
    }
    found.has_parameter_sets = HasAll(kinds);
    return found;
}

bool CParameterSets::HasAll(uint32_t kinds) const {
    return kinds == (codec_ == NalCodec::kAvc ? kSpsBit | kPpsBit : kVpsBit | kSpsBit | kPpsBit);
}

// True when the set is new or differs from the one with its number.
bool CParameterSets::Keep(Kind kind, std::span<const uint8_t> nal) {
    while (!nal.empty() && nal.back() == 0)
        nal = nal.first(nal.size() - 1);
    if (nal.size() < 3 || nal.size() > kLongestSet) return false;
    uint32_t id = 0;
    if (kind == Kind::kPps) {
        id = LeadingUe(nal.subspan(codec_ == NalCodec::kAvc ? 1 : 2));
    } else if (kind == Kind::kVps) {
        id = nal[2] >> 4;
    } else {
        const auto details = codec_ == NalCodec::kAvc ? ReadAvcSps(nal) : ReadHevcSps(nal);
        if (!details) return false;
        id = details->id;
    }
    const auto before = [](const Set& set, const std::pair<Kind, uint32_t>& key) {
        return std::tie(set.kind, set.id) < std::tie(key.first, key.second);
    };
    const auto at = std::lower_bound(sets_.begin(), sets_.end(), std::pair(kind, id), before);
    if (at != sets_.end() && at->kind == kind && at->id == id) {
        if (std::ranges::equal(at->bytes, nal)) return false;
        Remember();
        at->bytes.assign(nal.begin(), nal.end());
        return true;
    }
    if (sets_.size() == kMostSets || (kind == Kind::kSps && Count(kind) == kMostAvcSps)) return false;
    Remember();
    sets_.insert(at, {kind, id, {nal.begin(), nal.end()}});
    return true;
}

// Ahead of a scan's first change.
void CParameterSets::Remember() {
    if (changed_) return;
    before_ = sets_;
    changed_ = true;
}

void CParameterSets::Undo() {
    if (changed_) sets_.swap(before_);
    changed_ = false;
}

uint32_t CParameterSets::Count(Kind kind) const {
    return static_cast<uint32_t>(std::ranges::count(sets_, kind, &Set::kind));
}

const CParameterSets::Set* CParameterSets::First(Kind kind) const {
    const auto at = std::ranges::find(sets_, kind, &Set::kind);
    return at != sets_.end() ? &*at : nullptr;
}

bool CParameterSets::Complete() const {
    return First(Kind::kSps) != nullptr && First(Kind::kPps) != nullptr &&
           (codec_ == NalCodec::kAvc || First(Kind::kVps) != nullptr);
}

std::optional<SpsDetails> CParameterSets::Details() const {
    const Set* const sps = First(Kind::kSps);
    if (sps == nullptr) return std::nullopt;
    return codec_ == NalCodec::kAvc ? ReadAvcSps(sps->bytes) : ReadHevcSps(sps->bytes);
}

uint32_t CParameterSets::ConfigurationSize() const {
    constexpr uint32_t kMore = 27;  // more than either record has around its sets
    uint32_t size = kMore + 3 * 3;
    for (const Set& set : sets_)
        size += 2 + static_cast<uint32_t>(set.bytes.size());
    // The exact size is what the writer says.
    std::vector<uint8_t> area(size);
    ByteCursor out(area.data(), size);
    WriteConfiguration(out);
    return out.Size();
}

void CParameterSets::WriteConfiguration(ByteCursor& out, bool only_here) const {
    if (codec_ == NalCodec::kAvc) {
        WriteAvc(out);
    } else {
        WriteHevc(out, only_here);
    }
}

void CParameterSets::WriteAvc(ByteCursor& out) const {
    constexpr uint8_t kProfilesBefore2005[] = {66, 77, 88};
    const Set* const sps = First(Kind::kSps);
    if (sps == nullptr || sps->bytes.size() < 4) return;
    const auto put_all = [&](Kind kind) {
        for (const Set& set : sets_) {
            if (set.kind != kind) continue;
            const auto length = static_cast<uint32_t>(set.bytes.size());
            out.BE16(static_cast<uint16_t>(length)).Bytes(set.bytes.data(), length);
        }
    };
    const uint8_t profile = sps->bytes[1];
    out.U8(1)                                                 // configurationVersion
        .U8(profile)                                          // AVCProfileIndication
        .U8(sps->bytes[2])                                    // profile_compatibility
        .U8(sps->bytes[3])                                    // AVCLevelIndication
        .U8(0xFC | kLengthSizeMinusOne)                       // reserved, lengthSizeMinusOne
        .U8(static_cast<uint8_t>(0xE0 | Count(Kind::kSps)));  // reserved, numOfSequenceParameterSets
    put_all(Kind::kSps);
    out.U8(static_cast<uint8_t>(Count(Kind::kPps)));  // numOfPictureParameterSets
    put_all(Kind::kPps);
    if (std::ranges::find(kProfilesBefore2005, profile) != std::end(kProfilesBefore2005)) return;
    const SpsDetails details = ReadAvcSps(sps->bytes).value_or(SpsDetails{});
    out.U8(static_cast<uint8_t>(0xFC | details.chroma_format_idc))        // reserved, chroma_format
        .U8(static_cast<uint8_t>(0xF8 | (details.bit_depth_luma - 8)))    // reserved, bit_depth_luma_minus8
        .U8(static_cast<uint8_t>(0xF8 | (details.bit_depth_chroma - 8)))  // reserved, bit_depth_chroma_minus8
        .U8(0);                                                           // numOfSequenceParameterSetExt
}

void CParameterSets::WriteHevc(ByteCursor& out, bool only_here) const {
    const Set* const sps = First(Kind::kSps);
    if (sps == nullptr) return;
    HevcProfile profile;
    const SpsDetails details = ReadHevcSps(sps->bytes, &profile).value_or(SpsDetails{});
    out.U8(1)                                                             // configurationVersion
        .U8(profile.general_profile)                                      // profile space, tier, profile
        .BE32(profile.compatibility_flags)                                // general_profile_compatibility_flags
        .BE16(static_cast<uint16_t>(profile.constraint_flags >> 32))      // general_constraint_indicator_flags
        .BE32(static_cast<uint32_t>(profile.constraint_flags))            //
        .U8(profile.level_idc)                                            // general_level_idc
        .BE16(0xF000)                                                     // reserved, min_spatial_segmentation_idc
        .U8(0xFC)                                                         // reserved, parallelismType
        .U8(static_cast<uint8_t>(0xFC | details.chroma_format_idc))       // reserved, chromaFormat
        .U8(static_cast<uint8_t>(0xF8 | (details.bit_depth_luma - 8)))    // reserved, bitDepthLumaMinus8
        .U8(static_cast<uint8_t>(0xF8 | (details.bit_depth_chroma - 8)))  // reserved, bitDepthChromaMinus8
        .BE16(0)                                                          // avgFrameRate
        // constantFrameRate, numTemporalLayers, temporalIdNested, lengthSizeMinusOne
        .U8(static_cast<uint8_t>((profile.sub_layers & 7) << 3 | (profile.temporal_id_nesting ? 4 : 0) |
                                 kLengthSizeMinusOne));
    constexpr std::pair<Kind, uint8_t> kArrays[] = {
        {Kind::kVps, kHevcVps}, {Kind::kSps, kHevcSps}, {Kind::kPps, kHevcPps}};
    out.U8(static_cast<uint8_t>(
        std::ranges::count_if(kArrays, [&](const auto& array) { return Count(array.first) != 0; })));  // numOfArrays
    for (const auto& [kind, type] : kArrays) {
        const uint32_t count = Count(kind);
        if (count == 0) continue;
        out.U8(static_cast<uint8_t>((only_here ? 0x80 : 0) | type))  // array_completeness, NAL_unit_type
            .BE16(static_cast<uint16_t>(count));                     // numNalus
        for (const Set& set : sets_) {
            if (set.kind != kind) continue;
            const auto length = static_cast<uint32_t>(set.bytes.size());
            out.BE16(static_cast<uint16_t>(length)).Bytes(set.bytes.data(), length);  // nalUnitLength, nalUnit
        }
    }
}

void CParameterSets::WriteAnnexB(ByteCursor& out) const {
    for (const Set& set : sets_)
        out.BE32(kStartCode).Bytes(set.bytes.data(), static_cast<uint32_t>(set.bytes.size()));
}

void CParameterSets::WriteLengthPrefixed(ByteCursor& out) const {
    for (const Set& set : sets_) {
        const auto length = static_cast<uint32_t>(set.bytes.size());
        out.BE32(length).Bytes(set.bytes.data(), length);
    }
}

uint32_t CParameterSets::UnitsSize() const {
    uint32_t size = 0;
    for (const Set& set : sets_)
        size += kLengthSize + static_cast<uint32_t>(set.bytes.size());
    return size;
}

}  // namespace Orvane::Muxora
