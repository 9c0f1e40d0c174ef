#include "protocols/rtsp.h"

#include <algorithm>
#include <charconv>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr std::string_view kVersion = "RTSP/1.0";
constexpr size_t kFrameHead = 4;
constexpr size_t kMaxFields = 64;

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Lowered(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

std::string_view Trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool IsText(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x20 && c != 0x7F; });
}

bool IsToken(std::string_view text) {
    return !text.empty() && IsText(text) && text.find_first_of(" \t:,;=\"()<>@/[]?{}\\") == std::string_view::npos;
}

template <typename Number>
bool ParseNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// "5000-5001", or one number and the next one after it.
bool ParsePair(std::string_view text, RtspTransport& transport) {
    const size_t dash = text.find('-');
    if (!ParseNumber(text.substr(0, dash), transport.rtp)) return false;
    if (dash == std::string_view::npos) {
        transport.rtcp = static_cast<uint16_t>(transport.rtp + 1);
        return true;
    }
    return ParseNumber(text.substr(dash + 1), transport.rtcp);
}

std::optional<RtspTransport> ParseOne(std::string_view text) {
    RtspTransport transport;
    bool ports = false;
    bool first = true;
    while (!text.empty()) {
        const size_t end = std::min(text.find(';'), text.size());
        const std::string_view part = Trimmed(text.substr(0, end));
        text = end < text.size() ? text.substr(end + 1) : std::string_view();
        if (first) {
            first = false;
            const std::string name = Lowered(part);
            transport.interleaved = name == "rtp/avp/tcp";
            if (!transport.interleaved && name != "rtp/avp" && name != "rtp/avp/udp") return std::nullopt;
            continue;
        }
        const size_t equals = std::min(part.find('='), part.size());
        const std::string name = Lowered(part.substr(0, equals));
        const std::string_view value = equals < part.size() ? part.substr(equals + 1) : std::string_view();
        if (name == "multicast") return std::nullopt;
        if (name == "mode" && Lowered(value).find("play") == std::string::npos) return std::nullopt;
        if (name == (transport.interleaved ? "interleaved" : "client_port")) {
            if (!ParsePair(value, transport)) return std::nullopt;
            ports = true;
        }
    }
    if (first) return std::nullopt;
    if (transport.interleaved) {
        if (!ports) transport.rtcp = 1;
        return transport.rtp < 256 && transport.rtcp < 256 ? std::optional(transport) : std::nullopt;
    }
    return ports && transport.rtp != 0 && transport.rtcp != 0 ? std::optional(transport) : std::nullopt;
}

const char* Reason(unsigned status) {
    switch (status) {
        case 200:
            return "OK";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 404:
            return "Not Found";
        case 454:
            return "Session Not Found";
        case 455:
            return "Method Not Valid in This State";
        case 459:
            return "Aggregate Operation Not Allowed";
        case 461:
            return "Unsupported Transport";
        case 501:
            return "Not Implemented";
        case 503:
            return "Service Unavailable";
        default:
            return "Status";
    }
}

void Put32(std::string& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out += static_cast<char>(value >> shift & 0xFF);
}

void Put16(std::string& out, uint32_t value) {
    out += static_cast<char>(value >> 8 & 0xFF);
    out += static_cast<char>(value & 0xFF);
}

}  // namespace

std::string RtspRequest::Field(const std::string& name) const {
    const auto found = fields.find(name);
    return found != fields.end() ? found->second : std::string();
}

RtspReader::Result RtspReader::Frame() {
    if (bytes_.size() < kFrameHead) return Result::kMore;
    const size_t size =
        static_cast<size_t>(static_cast<unsigned char>(bytes_[2])) << 8 | static_cast<unsigned char>(bytes_[3]);
    if (bytes_.size() < kFrameHead + size) return Result::kMore;
    bytes_.erase(0, kFrameHead + size);
    return Result::kFrame;
}

RtspReader::Result RtspReader::Next() {
    // Blank lines between requests are let pass.
    const size_t start = bytes_.find_first_not_of("\r\n");
    bytes_.erase(0, std::min(start, bytes_.size()));
    if (bytes_.empty()) return Result::kMore;
    if (bytes_[0] == '$') return Frame();
    const size_t end = bytes_.find("\r\n\r\n");
    if (end == std::string::npos) return bytes_.size() > kMaxHeaderBytes ? Result::kBad : Result::kMore;
    if (end > kMaxHeaderBytes || !ParseHead(std::string_view(bytes_).substr(0, end))) return Result::kBad;
    size_t length = 0;
    if (const std::string field = request_.Field("content-length"); !field.empty()) {
        if (!ParseNumber(field, length) || length > kMaxBodyBytes) return Result::kBad;
    }
    const size_t body = end + 4;
    if (bytes_.size() - body < length) return Result::kMore;
    request_.body = bytes_.substr(body, length);
    bytes_.erase(0, body + length);
    return Result::kRequest;
}

bool RtspReader::ParseHead(std::string_view head) {
    request_ = RtspRequest{};
    const size_t line_end = std::min(head.find("\r\n"), head.size());
    const std::string_view line = head.substr(0, line_end);
    const size_t first = line.find(' ');
    const size_t second = line.rfind(' ');
    if (first == std::string_view::npos || first == second || line.substr(second + 1) != kVersion) return false;
    request_.method = line.substr(0, first);
    request_.uri = line.substr(first + 1, second - first - 1);
    if (!IsToken(request_.method) || request_.uri.size() > kMaxTargetBytes || !IsText(request_.uri) ||
        request_.uri.find(' ') != std::string::npos) {
        return false;
    }
    std::string_view rest = line_end < head.size() ? head.substr(line_end + 2) : std::string_view();
    while (!rest.empty()) {
        const size_t end = std::min(rest.find("\r\n"), rest.size());
        const std::string_view field = rest.substr(0, end);
        rest = end < rest.size() ? rest.substr(end + 2) : std::string_view();
        const size_t colon = field.find(':');
        if (colon == std::string_view::npos || !IsToken(field.substr(0, colon))) return false;
        const std::string_view value = Trimmed(field.substr(colon + 1));
        if (!IsText(value) || request_.fields.size() >= kMaxFields) return false;
        request_.fields[Lowered(field.substr(0, colon))] = value;
    }
    return true;
}

std::optional<RtspAddress> ParseRtspAddress(const std::string& uri) {
    std::string_view path = uri;
    if (const size_t scheme = path.find("://"); scheme != std::string_view::npos) {
        path.remove_prefix(scheme + 3);
        path.remove_prefix(std::min(path.find('/'), path.size()));
    }
    if (path.empty() || path.front() != '/') return std::nullopt;
    path.remove_prefix(1);
    RtspAddress address;
    // Players put what names a track behind the query, too.
    constexpr std::string_view kTrack = "/trackID=";
    if (const size_t at = path.rfind(kTrack); at != std::string_view::npos) {
        unsigned track = 0;
        if (!ParseNumber(path.substr(at + kTrack.size()), track)) return std::nullopt;
        address.track = track;
        path = path.substr(0, at);
    }
    const size_t mark = path.find('?');
    if (mark != std::string_view::npos) address.query = path.substr(mark + 1);
    path = path.substr(0, mark);
    while (!path.empty() && path.back() == '/')
        path.remove_suffix(1);
    address.stream = path;
    return address;
}

std::optional<RtspTransport> ParseRtspTransport(const std::string& field) {
    std::string_view rest = field;
    while (!rest.empty()) {
        const size_t end = std::min(rest.find(','), rest.size());
        if (const auto transport = ParseOne(Trimmed(rest.substr(0, end)))) return transport;
        rest = end < rest.size() ? rest.substr(end + 1) : std::string_view();
    }
    return std::nullopt;
}

std::string PrintRtspReply(unsigned status, const std::string& sequence, const RtspFields& fields,
                           const std::string& body) {
    std::string text = std::string(kVersion) + " " + std::to_string(status) + " " + Reason(status) + "\r\n";
    if (!sequence.empty()) text += "CSeq: " + sequence + "\r\n";
    text += "Server: muxora\r\n";
    for (const auto& [name, value] : fields)
        text.append(name).append(": ").append(value).append("\r\n");
    if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return text + "\r\n" + body;
}

std::string PrintSenderReport(const SenderReport& report) {
    constexpr uint64_t kSecondsFrom1900To1970 = 2208988800;
    std::string out;
    out += '\x80';  // version 2
    out += '\xC8';  // SR
    Put16(out, 6);  // words behind the first
    Put32(out, report.ssrc);
    const auto us = static_cast<uint64_t>(report.wall_us);
    Put32(out, static_cast<uint32_t>(us / 1000000 + kSecondsFrom1900To1970));
    Put32(out, static_cast<uint32_t>(((us % 1000000) << 32) / 1000000));
    Put32(out, report.rtp_time);
    Put32(out, report.packets);
    Put32(out, report.octets);
    constexpr std::string_view kName = "muxora";
    out += '\x81';  // one source
    out += '\xCA';  // SDES
    Put16(out, 4);
    Put32(out, report.ssrc);
    out += '\x01';  // CNAME
    out += static_cast<char>(kName.size());
    out += kName;
    out += std::string(4, '\0');  // the end, and up to a whole word
    if (report.goodbye) {
        out += '\x81';
        out += '\xCB';  // BYE
        Put16(out, 1);
        Put32(out, report.ssrc);
    }
    return out;
}

}  // namespace Orvane::Muxora::Gateway
