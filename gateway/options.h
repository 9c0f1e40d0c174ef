// What the command line says.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "bounds.h"
#include "log.h"
#include "packaging/segment_list.h"
#include "protocols/access.h"
#include "recording/recorder.h"
#include "servers/http_server.h"
#include "servers/rtsp_server.h"

namespace Orvane::Muxora::Gateway {

struct Options {
    std::vector<std::pair<std::string, std::string>> streams;  // name and input
    HttpSettings http;
    RtspSettings rtsp;
    AccessSettings access;
    SegmentSettings segments;
    RecordingSettings recording;
    std::string certificate;  // TLS, PEM; empty: plain
    std::string private_key;
    std::string cors;
    std::string publish;      // servers of a relay, where all streams go
    std::string from;         // and from where all that are published come
    std::string credentials;  // of the relay's user
    std::string share;        // folder of the page
    size_t threads = 0;       // 0: one a core
    // Milliseconds that what goes to many clients is collected, at most; 0: never. See kCollectFrom.
    unsigned collect_ms = static_cast<unsigned>(kDefaultCollect.count());
    LogForm log = LogForm::kText;
    bool quiet = false;
    bool plain_rtsp = false;
};

// Gives an exit code, or a negative number to go on.
int ReadOptions(int argc, char** argv, Options& options);

}  // namespace Orvane::Muxora::Gateway
