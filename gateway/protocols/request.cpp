#include "protocols/request.h"

#include <algorithm>

namespace Orvane::Muxora::Gateway {

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// RFC 3986 2.1; '+' stands for a blank in a query.
bool Unescape(std::string_view text, bool query, std::string& out) {
    out.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            if (i + 2 >= text.size()) return false;
            const int high = HexDigit(text[i + 1]);
            const int low = HexDigit(text[i + 2]);
            if (high < 0 || low < 0) return false;
            c = static_cast<char>(high << 4 | low);
            i += 2;
        } else if (c == '+' && query) {
            c = ' ';
        }
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return false;
        out += c;
    }
    return true;
}

}  // namespace

std::string Request::Parameter(const std::string& name) const {
    const auto found = query.find(name);
    return found != query.end() ? found->second : std::string();
}

bool ParseTarget(std::string_view target, Request& request) {
    if (target.empty() || target.front() != '/') return false;
    const size_t mark = target.find('?');
    if (!Unescape(target.substr(0, mark), false, request.path)) return false;
    request.query.clear();
    if (mark == std::string_view::npos) return true;
    std::string_view rest = target.substr(mark + 1);
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('&'), rest.size());
        const std::string_view pair = rest.substr(0, end);
        const size_t equals = std::min(pair.find('='), pair.size());
        std::string name;
        std::string value;
        if (!Unescape(pair.substr(0, equals), true, name)) return false;
        if (equals < pair.size() && !Unescape(pair.substr(equals + 1), true, value)) return false;
        if (!name.empty()) request.query[name] = value;
        rest = end < rest.size() ? rest.substr(end + 1) : std::string_view();
    }
    return true;
}

std::string Escape(std::string_view text) {
    static constexpr std::string_view kUnreserved =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-._~";
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string escaped;
    for (const char c : text) {
        if (kUnreserved.find(c) != std::string_view::npos) {
            escaped += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            escaped += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return escaped;
}

Reply Reply::Text(unsigned status, std::string text, std::string type) {
    Reply reply;
    reply.status = status;
    reply.content_type = std::move(type);
    reply.body = std::move(text);
    return reply;
}

const char* ReasonPhrase(unsigned status) {
    switch (status) {
        case 101:
            return "Switching Protocols";
        case 200:
            return "OK";
        case 201:
            return "Created";
        case 204:
            return "No Content";
        case 304:
            return "Not Modified";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 408:
            return "Request Timeout";
        case 409:
            return "Conflict";
        case 413:
            return "Content Too Large";
        case 414:
            return "URI Too Long";
        case 431:
            return "Request Header Fields Too Large";
        case 501:
            return "Not Implemented";
        case 503:
            return "Service Unavailable";
        default:
            return "Status";
    }
}

std::string PrintHead(const Reply& reply, std::optional<size_t> length, bool chunked, bool keep_alive) {
    std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " " + ReasonPhrase(reply.status) + "\r\n";
    head += "Server: muxora\r\n";
    // RFC 9110 8.6: an answer that never has a body has no length either.
    const bool bodiless = reply.status == 204 || reply.status == 304;
    if (!bodiless) head += "Content-Type: " + reply.content_type + "\r\n";
    if (length && !bodiless) head += "Content-Length: " + std::to_string(*length) + "\r\n";
    if (chunked) head += "Transfer-Encoding: chunked\r\n";
    head += keep_alive ? "Connection: keep-alive\r\n" : "Connection: close\r\n";
    head += "X-Content-Type-Options: nosniff\r\n";
    for (const auto& [name, value] : reply.headers)
        head.append(name).append(": ").append(value).append("\r\n");
    return head + "\r\n";
}

}  // namespace Orvane::Muxora::Gateway
