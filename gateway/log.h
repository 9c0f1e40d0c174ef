// What the gateway tells its operator: one event a line, as text or as JSON, on the standard error.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>

namespace Orvane::Muxora::Gateway {

enum class LogForm { kText, kJson };
using LogFields = std::initializer_list<std::pair<const char*, std::string>>;

void StartLog(LogForm form, bool quiet);
// `event` is a few plain words; the fields say what of.
void LogInfo(const std::string& event, LogFields fields = {});
void LogWarning(const std::string& event, LogFields fields = {});

}  // namespace Orvane::Muxora::Gateway
