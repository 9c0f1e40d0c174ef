// Where a stream's frames come from. A source knows the stream and nothing behind it.
#pragma once

#include <memory>
#include <string>

#include "hub/stream.h"

namespace Orvane::Muxora::Gateway {

class Source {
  public:
    // Ends the work, and waits until no frame comes any more.
    virtual ~Source() = default;
};

// Anything that libavformat opens: a file is played in real time and again from its start, what comes from the network
// is taken as it comes and opened again when it breaks. "listen+rtmp://..." waits for a sender. `trusted`: the operator
// named it; otherwise only addresses of the network are opened, and files that they lead to are not. Throws
// std::runtime_error when the text names no input that may be opened.
std::unique_ptr<Source> OpenAvSource(const StreamPtr& stream, const std::string& input, bool trusted);

// May a client of the interface name this input?
bool IsNetworkInput(const std::string& input);

// The input for what is shown: of an address of the network its scheme, host and port. User name and password, and the
// path and the query, where many senders and cameras have a key, are left out.
std::string WithoutSecrets(const std::string& input);

}  // namespace Orvane::Muxora::Gateway
