// muxora formats: what the library packs.
#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "muxora/command.h"
#include "muxora/format_list.h"
#include "muxora/json.h"

namespace Orvane::Muxora::Tools {

namespace {

JsonValue CodecList(const Format& format, uint32_t type) {
    JsonValue list = JsonValue::List();
    for (const MXCapacityEntry& entry : Capacity(format, type)) {
        JsonValue codec = JsonValue::Object();
        codec.Add("number", entry.codec);
        codec.Add("name", type == MX_CAPACITY_VIDEO ? VideoCodecName(entry.codec) : AudioCodecName(entry.codec));
        if (entry.samples_per_sec != 0) codec.Add("samples_per_sec", entry.samples_per_sec);
        if (entry.bits_per_sample != 0) codec.Add("bits_per_sample", entry.bits_per_sample);
        if (entry.channels != 0) codec.Add("channels", entry.channels);
        list.Add(codec);
    }
    return list;
}

void PrintJson() {
    JsonValue all = JsonValue::List();
    for (const Format& format : Formats()) {
        JsonValue row = JsonValue::Object();
        row.Add("number", format.number);
        row.Add("key", format.key);
        row.Add("extensions", format.extensions);
        row.Add("kind", format.stream ? "stream" : "file");
        row.Add("seeks", format.seeks);
        row.Add("video", CodecList(format, MX_CAPACITY_VIDEO));
        row.Add("audio", CodecList(format, MX_CAPACITY_AUDIO));
        row.Add("about", format.about);
        all.Add(row);
    }
    std::cout << all.Text() << '\n';
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
