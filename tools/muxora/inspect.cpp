#include "muxora/inspect.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include "common/file_kind.h"
#include "common/json.h"
#include "media_input/file_bytes.h"
#include "muxora/command.h"
#include "ovx_reader/reader.h"
#include "ovx_reader/summary.h"

namespace Orvane::Muxora::Tools {

namespace {

using OvxReader::Date;
using OvxReader::Piece;
using OvxReader::Reader;
using OvxReader::Record;
using OvxReader::Summary;

std::string KindName(const OvxReader::Head& head) {
    std::string name;
    switch (head.kind) {
        case OvxReader::kKindAudio:
            name = "audio";
            break;
        case OvxReader::kKindJpeg:
            name = "jpeg";
            break;
        case OvxReader::kKindI:
            name = "I";
            break;
        case OvxReader::kKindP:
            name = "P";
            break;
        case OvxReader::kKindB:
            name = "B";
            break;
        case OvxReader::kKindOther:
            name = "other";
            break;
        default:
            name = "kind" + std::to_string(head.kind);
            break;
    }
    if (head.sub_kind != 0) name += "/" + std::to_string(head.sub_kind);
    return name;
}

std::string DateText(uint32_t packed) {
    const Date date(packed);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04u-%02u-%02u %02u:%02u:%02u", date.year, date.month, date.day, date.hour,
                  date.minute, date.second);
    return text.data();
}

template <typename Visit>
void ForEachRecord(const Piece& piece, Visit visit) {
    OvxReader::ByteSpan block = piece.extension.Block();
    while (const auto record = OvxReader::TakeRecord(block))
        visit(*record);
}

const char* CheckName(OvxReader::Check check) {
    switch (check) {
        case OvxReader::Check::kRight:
            return "right";
        case OvxReader::Check::kWrong:
            return "wrong";
        default:
            return "missing";
    }
}

void PrintPiece(const Piece& piece) {
    std::printf("%12" PRIu64 " %9" PRIu64 "  ", piece.offset, piece.length);
    if (!piece.is_unit) {
        std::printf("LOST: %s\n", DamageText(piece).c_str());
        return;
    }
    if ((piece.damage & OvxReader::kDamagedHead) == 0) {
        std::printf("%-7s %10u  %s %5u ms  %9zu ", KindName(piece.head).c_str(), piece.head.sequence,
                    DateText(piece.head.date).c_str(), piece.head.timestamp, piece.frame.size());
    }
    std::string records;
    ForEachRecord(piece, [&](const Record& record) {
        records += " " + std::string(record.Name()) + " [" + record.Describe() + "]";
        if (record.tag == OvxReader::kDataCheck) records += piece.check == OvxReader::Check::kRight ? " ok" : " WRONG";
    });
    std::printf("%s%s%s\n", records.c_str(), piece.Intact() ? "" : "  DAMAGED: ", DamageText(piece).c_str());
}

Json PieceJson(const Piece& piece) {
    Json value{{"offset", piece.offset}, {"length", piece.length}, {"unit", piece.is_unit}, {"intact", piece.Intact()}};
    if (!piece.Intact()) value["damage"] = DamageText(piece);
    if (!piece.is_unit) return value;
    if ((piece.damage & OvxReader::kDamagedHead) == 0) {
        value["kind"] = KindName(piece.head);
        value["sequence"] = piece.head.sequence;
        value["date"] = DateText(piece.head.date);
        value["timestamp"] = piece.head.timestamp;
    }
    value["frame_bytes"] = piece.frame.size();
    value["data_check"] = CheckName(piece.check);
    Json records = Json::array();
    ForEachRecord(piece, [&](const Record& record) {
        records.push_back({{"name", record.Name()}, {"value", record.Describe()}});
    });
    value["records"] = std::move(records);
    return value;
}

Json StreamJson(const Summary::Stream& stream) {
    return {{"units", stream.units}, {"first", stream.first}, {"last", stream.last}, {"jumps", stream.jumps}};
}

// The pieces go out one by one, so that a long file takes no memory.
Summary PrintJson(Reader reader, const InspectArguments& arguments) {
    Summary summary;
    std::printf("{\"file\":%s,\"pieces\":[", JsonLine(Json(arguments.path)).c_str());
    const char* separator = "\n";
    while (const auto piece = reader.Next()) {
        summary.Add(*piece);
        if (arguments.summary && piece->Intact()) continue;
        std::printf("%s%s", separator, JsonLine(PieceJson(*piece)).c_str());
        separator = ",\n";
    }
    const Json totals{{"bytes", summary.bytes},
                      {"video", StreamJson(summary.video)},
                      {"audio", StreamJson(summary.audio)},
                      {"encrypted_units", summary.encrypted_units},
                      {"damaged_units", summary.damaged_units},
                      {"damaged_bytes", summary.damaged_bytes},
                      {"lost_stretches", summary.lost_stretches},
                      {"lost_bytes", summary.lost_bytes}};
    // The totals' opening brace is the one printed above.
    std::printf("],%s\n", JsonLine(totals).substr(1).c_str());
    return summary;
}

void PrintStream(const char* name, const Summary::Stream& stream) {
    if (stream.units == 0) return;
    std::printf("%s: %" PRIu64 " units, sequence %u to %u", name, stream.units, stream.first, stream.last);
    if (stream.jumps != 0) std::printf(" with %" PRIu64 " jumps", stream.jumps);
    std::printf("\n");
}

Summary PrintTable(Reader reader, const InspectArguments& arguments) {
    Summary summary;
    bool titled = false;
    while (const auto piece = reader.Next()) {
        summary.Add(*piece);
        if (arguments.summary && piece->Intact()) continue;
        if (!titled) {
            std::printf("%12s %9s  %-7s %10s  %-19s %8s  %9s  %s\n", "offset", "length", "kind", "sequence", "date",
                        "time", "frame", "records");
            titled = true;
        }
        PrintPiece(*piece);
    }
    PrintStream("video", summary.video);
    PrintStream("audio", summary.audio);
    if (summary.encrypted_units != 0) std::printf("encrypted: %" PRIu64 " units\n", summary.encrypted_units);
    std::printf("%" PRIu64 " bytes, %s\n", summary.bytes,
                summary.Damaged() ? summary.DamageText().c_str() : "all of them in intact units");
    return summary;
}

}  // namespace

void Inspect(const InspectArguments& arguments) {
    const FileBytes file(arguments.path);
    if (file.All().empty()) throw Failure(arguments.path + " is empty");
    if (const FileKind kind = KindOf(file.All()); kind != FileKind::kUnknown) {
        throw Failure(arguments.path + " is " + KindText(kind) +
                      ", and inspect shows OVX; ffprobe and mediainfo show the others");
    }
    const Reader reader(file.All());
    const Summary summary = arguments.json ? PrintJson(reader, arguments) : PrintTable(reader, arguments);
    std::fflush(stdout);
    if (std::ferror(stdout) != 0) throw Failure("cannot write to the standard output");
    file.CheckWhole(arguments.path);
    if (summary.video.units + summary.audio.units + summary.damaged_units == 0) {
        throw Failure(arguments.path + " has no OVX unit in it");
    }
    if (summary.Damaged()) throw Failure(arguments.path + " is damaged: " + summary.DamageText());
}

void AddInspect(CLI::App& app) {
    CLI::App* command = app.add_subcommand("inspect", "Show the units of an OVX file, and where it is damaged");
    auto arguments = std::make_shared<InspectArguments>();
    command->add_option("FILE", arguments->path, "The OVX file; - is the standard input")->required();
    command->add_flag("--summary", arguments->summary, "Leave the intact units out");
    command->add_flag("--json", arguments->json, "Print JSON");
    command->footer(
        "Example:\n"
        "  muxora inspect recording.ovx --summary\n\n"
        "Each line is a stretch of the file, in order and without a gap: a unit, or bytes that belong to none. The "
        "exit\n"
        "code is 1 when something is damaged.");
    command->callback([arguments] { Inspect(*arguments); });
}

}  // namespace Orvane::Muxora::Tools
