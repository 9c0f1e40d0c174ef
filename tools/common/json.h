// JSON as the programs print it.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "common/json_fwd.h"

namespace Orvane::Muxora::Tools {

// In one line. Names of files need not be UTF-8: what is not becomes U+FFFD.
inline std::string JsonLine(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Orvane::Muxora::Tools
