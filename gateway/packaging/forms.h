// The forms in which a stream goes out as endless bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Orvane::Muxora::Gateway {

struct Form {
    std::string_view extension;  // of the address, with its dot
    uint32_t format;             // the library's number
    uint32_t fragment_ms;        // fragmented MP4: the longest fragment
    std::string_view content_type;
    bool web_socket;  // also served as messages
    // Later headers complete the first one, which a client needs all the same; otherwise they replace it.
    bool first_header_stays = false;
};

// RTP packets, which RTSP clients get: at no address of HTTP.
extern const Form kRtpForm;

// "flv" and so on, or "rtsp": for what is told.
std::string ShortName(const Form& form);

// Null when there is no such form.
const Form* FormByExtension(std::string_view extension);
// All of them.
const Form* AllForms(size_t& count);

}  // namespace Orvane::Muxora::Gateway
