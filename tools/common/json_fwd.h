// JSON by name alone, for headers: json.h takes seconds to compile.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace Orvane::Muxora::Tools {

using Json = nlohmann::ordered_json;

}  // namespace Orvane::Muxora::Tools
