// The headers of a relay's message, as NATS keeps them: by name.
#pragma once

#include <map>
#include <string>

#include "relay/message.h"

namespace test {

using HeaderMap = std::map<std::string, std::string>;

inline bool ParseHeaders(const HeaderMap& headers, Orvane::Muxora::Gateway::RelayNote& note) {
    return Orvane::Muxora::Gateway::ParseNote(
        [&headers](const char* name) {
            const auto found = headers.find(name);
            return found != headers.end() ? found->second.c_str() : nullptr;
        },
        note);
}

}  // namespace test
