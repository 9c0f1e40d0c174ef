#include "protocols/access.h"

#include <openssl/crypto.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <array>
#include <charconv>
#include <stdexcept>

namespace Orvane::Muxora::Gateway {

namespace {

std::string Hex(const unsigned char* bytes, size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

std::string BearerOf(const Request& request) {
    constexpr std::string_view kBearer = "Bearer ";
    const std::string& field = request.authorization;
    return field.compare(0, kBearer.size(), kBearer) == 0 ? field.substr(kBearer.size()) : std::string();
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

// "host:port" without the port that the scheme has anyway.
std::string_view WithoutDefaultPort(std::string_view host, std::string_view scheme) {
    const std::string_view port = scheme == "https" ? ":443" : ":80";
    if (host.size() > port.size() && host.substr(host.size() - port.size()) == port) host.remove_suffix(port.size());
    return host;
}

}  // namespace

bool SameSecret(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string RandomToken() {
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) throw std::runtime_error("no randomness");
    return Hex(bytes.data(), bytes.size());
}

bool Access::MayList(const Request& request) const {
    if (settings_.view_token.empty() && settings_.sign_key.empty()) return true;
    if (MayChange(request)) return true;
    if (settings_.view_token.empty()) return false;
    return SameSecret(BearerOf(request), settings_.view_token) ||
           SameSecret(request.Parameter("token"), settings_.view_token);
}

bool Access::MayView(const Request& request, const std::string& stream, int64_t now) const {
    if (MayList(request)) return true;
    if (settings_.sign_key.empty()) return false;
    const std::string text = request.Parameter("expires");
    int64_t expires = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), expires);
    if (error != std::errc() || end != text.data() + text.size() || expires < now) return false;
    return SameSecret("expires=" + text + "&signature=" + request.Parameter("signature"), Sign(stream, expires));
}

bool Access::MayChange(const Request& request) const {
    return !settings_.api_token.empty() && SameSecret(BearerOf(request), settings_.api_token);
}

std::string Access::Sign(const std::string& stream, int64_t expires) const {
    const std::string message = stream + "\n" + std::to_string(expires);
    std::array<unsigned char, EVP_MAX_MD_SIZE> mac{};
    unsigned size = 0;
    HMAC(EVP_sha256(), settings_.sign_key.data(), static_cast<int>(settings_.sign_key.size()),
         reinterpret_cast<const unsigned char*>(message.data()), message.size(), mac.data(), &size);
    return "expires=" + std::to_string(expires) + "&signature=" + Hex(mac.data(), size);
}

bool Access::MayOpenSocket(const std::string& origin, const std::string& host, const std::string& cors) {
    if (origin.empty() || cors == "*") return true;
    const std::string page = LowerCase(origin);
    if (!cors.empty() && page == LowerCase(cors)) return true;
    // What stands before a proxy may speak TLS: the page's scheme says which port need not be named.
    const size_t mark = page.find("://");
    if (mark == std::string::npos || host.empty()) return false;
    const std::string own = LowerCase(host);
    const std::string_view scheme = std::string_view(page).substr(0, mark);
    return WithoutDefaultPort(std::string_view(page).substr(mark + 3), scheme) == WithoutDefaultPort(own, scheme);
}

std::string Access::Carried(const Request& request) {
    std::string carried;
    for (const char* name : {"token", "expires", "signature"}) {
        const std::string value = request.Parameter(name);
        if (!value.empty()) carried += (carried.empty() ? "?" : "&") + std::string(name) + "=" + Escape(value);
    }
    return carried;
}

}  // namespace Orvane::Muxora::Gateway
