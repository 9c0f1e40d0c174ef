#include "servers/page.h"

#include <fstream>
#include <iterator>

namespace Orvane::Muxora::Gateway {

namespace {

struct Known {
    const char* path;
    const char* file;
    const char* type;
};

constexpr Known kFiles[] = {
    {"/", "index.html", "text/html; charset=utf-8"},
    {"/page/page.js", "page.js", "text/javascript; charset=utf-8"},
    {"/page/page.css", "page.css", "text/css; charset=utf-8"},
    {"/page/mse_player.js", "mse_player.js", "text/javascript; charset=utf-8"},
    {"/page/mpegts.js", "mpegts.js", "text/javascript; charset=utf-8"},
    {"/page/hls.js", "hls.min.js", "text/javascript; charset=utf-8"},
};

// Everything comes from here, but for the workers that the players make of their own text.
constexpr char kPolicy[] =
    "default-src 'self'; connect-src 'self' ws: wss:; media-src 'self' blob:; worker-src 'self' blob:; img-src 'self' "
    "data:";

}  // namespace

Page::Page(const std::string& folder) {
    for (const Known& known : kFiles) {
        std::ifstream in(folder + "/" + known.file, std::ios::binary);
        if (!in) continue;
        const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        Reply reply = Reply::Text(200, text, known.type);
        reply.headers = {{"Cache-Control", "no-cache"}, {"Content-Security-Policy", kPolicy}};
        files_.emplace(known.path, std::move(reply));
    }
}

std::optional<Reply> Page::Find(const std::string& path) const {
    const auto found = files_.find(path);
    if (found == files_.end()) return std::nullopt;
    return found->second;
}

}  // namespace Orvane::Muxora::Gateway
