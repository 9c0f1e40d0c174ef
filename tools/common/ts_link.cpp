#include "common/ts_link.h"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <charconv>
#include <chrono>
#include <sstream>
#include <string_view>
#include <thread>

#include "common/errors.h"
#include "common/pace.h"
#include "common/ts_schedule.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr char kUdp[] = "udp";
constexpr char kSrt[] = "srt";
// Longer than any latency that is asked for on a network that works.
constexpr std::chrono::milliseconds kLastDatagrams{500};

bool HasScheme(const std::string& address, const std::string& scheme) {
    return address.rfind(scheme + "://", 0) == 0;
}

// SCHEME://HOST:PORT, and options behind '?'.
void CheckAddress(const std::string& address) {
    const size_t host = address.find("://") + 3;
    const std::string place = address.substr(host, address.find('?', host) - host);
    const size_t colon = place.rfind(':');
    unsigned port = 0;
    const char* const end = place.data() + place.size();
    const bool good = colon != std::string::npos && std::from_chars(place.data() + colon + 1, end, port).ptr == end &&
                      port > 0 && port < 65536;
    // SRT that listens may leave the host out.
    if (!good || (colon == 0 && !HasScheme(address, kSrt))) {
        throw WrongUsage("'" + address + "' is no rtp://HOST:PORT, udp://HOST:PORT or srt://HOST:PORT");
    }
}

bool HaveProtocol(const std::string& name) {
    void* state = nullptr;
    while (const char* found = avio_enum_protocols(&state, 1)) {
        if (found == name) return true;
    }
    return false;
}

// libavformat passes over what it does not know: a misspelt option would do nothing, and say nothing.
void CheckOption(const std::string& scheme, const std::string& name) {
    const AVClass* about = avio_protocol_get_class(scheme.c_str());
    // Behind the address, UDP knows one that is not in its list.
    if (about == nullptr || (scheme == kUdp && name == "dscp")) return;
    if (av_opt_find(&about, name.c_str(), nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr) return;
    std::string known;
    for (const AVOption* option = nullptr; (option = av_opt_next(&about, option)) != nullptr;) {
        if (option->type == AV_OPT_TYPE_CONST || (option->flags & AV_OPT_FLAG_ENCODING_PARAM) == 0) continue;
        known += (known.empty() ? "" : ", ") + std::string(option->name);
    }
    throw WrongUsage(scheme + ":// has no option '" + name + "'; it has: " + known);
}

// Gives libavformat the options behind the address once more, by name: so it looks at their values, too.
void ReadOptions(const std::string& address, const std::string& scheme, AVDictionary*& settings) {
    const size_t question = address.find('?');
    if (question == std::string::npos) return;
    std::istringstream options(address.substr(question + 1));
    for (std::string option; std::getline(options, option, '&');) {
        const size_t sign = std::min(option.find('='), option.size());
        const std::string name = option.substr(0, sign);
        if (option.empty()) continue;
        CheckOption(scheme, name);
        if (sign + 1 < option.size()) av_dict_set(&settings, name.c_str(), option.c_str() + sign + 1, 0);
    }
}

std::string ErrorText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

struct Settings {
    AVDictionary* all = nullptr;
    Settings() = default;
    ~Settings() { av_dict_free(&all); }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;
};

int OnWait(void* /*opaque*/) {
    return Interrupted() ? 1 : 0;
}

}  // namespace

struct TsLink::Writer {
    AVIOContext* context = nullptr;
    bool srt = false;
    ~Writer() {
        if (srt && context != nullptr && context->error == 0) std::this_thread::sleep_for(kLastDatagrams);
        avio_closep(&context);
    }
};

bool TsLink::Takes(const std::string& address) {
    return HasScheme(address, kUdp) || HasScheme(address, kSrt);
}

TsLink::TsLink(const std::string& address) : address_(address), writer_(std::make_unique<Writer>()) {
    CheckAddress(address_);
    writer_->srt = HasScheme(address_, kSrt);
    if (!HaveProtocol(writer_->srt ? kSrt : kUdp)) {
        throw Failure(std::string("the libavformat of this machine was built without ") +
                      (writer_->srt ? "libsrt; send over udp:// or rtp://" : "UDP"));
    }
    Settings settings;
    av_dict_set_int(&settings.all, "pkt_size", TsSchedule::kDatagram, 0);
    ReadOptions(address_, writer_->srt ? kSrt : kUdp, settings.all);
    const AVIOInterruptCB on_wait{OnWait, nullptr};
    const int result = avio_open2(&writer_->context, address_.c_str(), AVIO_FLAG_WRITE, &on_wait, &settings.all);
    if (result >= 0) return;
    // The options may hold a passphrase.
    const std::string shown = address_.substr(0, address_.find('?'));
    throw Failure("cannot send to " + shown + ": " + ErrorText(result) +
                  (writer_->srt             ? "; is somebody listening there, with the same passphrase?"
                   : result == AVERROR(EIO) ? "; is the host's name right?"
                                            : ""));
}

TsLink::~TsLink() = default;

void TsLink::Send(std::span<const uint8_t> datagram) {
    AVIOContext* const out = writer_->context;
    avio_write(out, datagram.data(), static_cast<int>(datagram.size()));
    avio_flush(out);
    ++datagrams_;
    if (out->error >= 0) return;
    if (writer_->srt && !Interrupted()) {
        throw Failure("the connection to " + address_.substr(0, address_.find('?')) +
                      " is gone: " + ErrorText(out->error));
    }
    ++lost_;
    out->error = 0;
}

}  // namespace Orvane::Muxora::Tools
