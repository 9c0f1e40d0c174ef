// muxora formats: what the library packs.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "common/format_list.h"
#include "common/json.h"
#include "muxora/command.h"

namespace Orvane::Muxora::Tools {

namespace {

Json CodecList(const Format& format, uint32_t type) {
    Json list = Json::array();
    for (const MXCapacityEntry& entry : Capacity(format, type)) {
        Json codec{{"number", entry.codec},
                   {"name", type == MX_CAPACITY_VIDEO ? VideoCodecName(entry.codec) : AudioCodecName(entry.codec)}};
        if (entry.samples_per_sec != 0) codec["samples_per_sec"] = entry.samples_per_sec;
        if (entry.bits_per_sample != 0) codec["bits_per_sample"] = entry.bits_per_sample;
        if (entry.channels != 0) codec["channels"] = entry.channels;
        list.push_back(std::move(codec));
    }
    return list;
}

void PrintJson() {
    Json all = Json::array();
    for (const Format& format : Formats()) {
        all.push_back({{"number", format.number},
                       {"key", format.key},
                       {"extensions", format.extensions},
                       {"kind", format.stream ? "stream" : "file"},
                       {"seeks", format.seeks},
                       {"video", CodecList(format, MX_CAPACITY_VIDEO)},
                       {"audio", CodecList(format, MX_CAPACITY_AUDIO)},
                       {"about", format.about}});
    }
    std::cout << JsonLine(all) << '\n';
}

void PrintTable() {
    std::vector<std::array<std::string, 7>> rows{{"No", "Key", "Kind", "Sink", "Video", "Audio", "What it is"}};
    for (const Format& format : Formats()) {
        rows.push_back({std::to_string(format.number), std::string(format.key), format.stream ? "stream" : "file",
                        format.seeks ? "seeks" : "forward", CapacityText(format, MX_CAPACITY_VIDEO),
                        CapacityText(format, MX_CAPACITY_AUDIO), std::string(format.about)});
    }
    std::array<size_t, 7> widths{};
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i + 1 < row.size(); ++i)
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        std::cout << line << row.back() << '\n';
    }
}

}  // namespace

void AddFormats(CLI::App& app) {
    CLI::App* command = app.add_subcommand("formats", "List the formats, with the codecs that each takes");
    auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print JSON");
    command->footer("Example:\n  muxora formats\n\nA format with a \"forward\" sink can be written to a pipe (-o -).");
    command->callback([json] { *json ? PrintJson() : PrintTable(); });
}

}  // namespace Orvane::Muxora::Tools
