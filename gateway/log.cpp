#include "log.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <nlohmann/json.hpp>

namespace Orvane::Muxora::Gateway {

namespace {

LogForm g_form = LogForm::kText;

std::string Line(const char* level, const std::string& event, LogFields fields) {
    if (g_form == LogForm::kJson) {
        nlohmann::ordered_json line;
        line["level"] = level;
        line["event"] = event;
        for (const auto& [name, value] : fields)
            line[name] = value;
        // Texts of others may hold bytes that are no UTF-8.
        std::string text = line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
        return text.substr(1);
    }
    std::string text = event;
    for (const auto& [name, value] : fields)
        text += std::string(" ") + name + "=" + value;
    return text;
}

}  // namespace

void StartLog(LogForm form, bool quiet) {
    g_form = form;
    auto logger = spdlog::stderr_color_mt("muxora");
    logger->set_pattern(form == LogForm::kJson ? "{\"time\":\"%Y-%m-%dT%H:%M:%S.%e%z\",%v" : "%H:%M:%S.%e %^%l%$ %v");
    logger->set_level(quiet ? spdlog::level::warn : spdlog::level::info);
    spdlog::set_default_logger(std::move(logger));
}

void LogInfo(const std::string& event, LogFields fields) {
    if (spdlog::should_log(spdlog::level::info)) spdlog::info("{}", Line("info", event, fields));
}

void LogWarning(const std::string& event, LogFields fields) {
    spdlog::warn("{}", Line("warning", event, fields));
}

}  // namespace Orvane::Muxora::Gateway
