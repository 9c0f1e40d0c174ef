#include "packaging/forms.h"

#include <cstddef>

#include "MuxoraExt.h"

namespace Orvane::Muxora::Gateway {

namespace {

// Pictures and sound together: players that read a fragment of one picture after one of a frame of sound find them not
// interleaved, and lose some.
constexpr uint32_t kFragmentMs = 100;

constexpr Form kForms[] = {
    {".flv", MX_FORMAT_XFLV, 0, "video/x-flv", true, true},
    {".ts", MX_FORMAT_XTS, 0, "video/mp2t", true},
    {".mp4", MX_FORMAT_FMP4, kFragmentMs, "video/mp4", true},
    {".mkv", MX_FORMAT_XMKV, 0, "video/x-matroska", true},
};

}  // namespace

const Form kRtpForm{"RTP", MX_FORMAT_RTP, 0, "", false};

std::string ShortName(const Form& form) {
    return &form == &kRtpForm ? "rtsp" : std::string(form.extension.substr(1));
}

const Form* AllForms(size_t& count) {
    count = sizeof kForms / sizeof kForms[0];
    return kForms;
}

const Form* FormByExtension(std::string_view extension) {
    for (const Form& form : kForms) {
        if (form.extension == extension) return &form;
    }
    return nullptr;
}

}  // namespace Orvane::Muxora::Gateway
