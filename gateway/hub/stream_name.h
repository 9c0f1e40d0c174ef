// What a stream may be called.
#pragma once

#include <string>

namespace Orvane::Muxora::Gateway {

// Letters, digits, "-" and "_", 64 at most: safe in an address, in a file's name and in a subject of a
// relay.
bool IsStreamName(const std::string& name);

}  // namespace Orvane::Muxora::Gateway
