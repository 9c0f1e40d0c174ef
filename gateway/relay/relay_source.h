// A stream that another gateway publishes.
#pragma once

#include <memory>

#include "hub/stream.h"
#include "relay/message.h"
#include "sources/source.h"

namespace Orvane::Muxora::Gateway {

class NatsLink;

// Begins at the last key frame, and goes on where the origin, or a server, was replaced by another. Throws
// std::runtime_error when the words are no address.
std::unique_ptr<Source> OpenRelaySource(const StreamPtr& stream, const std::string& input,
                                        const std::string& credentials);

}  // namespace Orvane::Muxora::Gateway
