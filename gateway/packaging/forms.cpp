#include "packaging/forms.h"

#include <cstddef>

#include "MuxoraExt.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr Form kForms[] = {
    {".flv", MX_FORMAT_XFLV, false, "video/x-flv", true, true},
    {".ts", MX_FORMAT_XTS, false, "video/mp2t", true},
    {".mp4", MX_FORMAT_FMP4, true, "video/mp4", true},
    {".mkv", MX_FORMAT_XMKV, false, "video/x-matroska", true},
};

}  // namespace

const Form kRtpForm{"RTP", MX_FORMAT_RTP, false, "", false};

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
