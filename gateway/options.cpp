#include "options.h"

#include <CLI/CLI.hpp>
#include <boost/asio/ip/address.hpp>
#include <iostream>

#include "MuxoraAPI.h"
#include "hub/hub.h"
#include "sources/source.h"

namespace Orvane::Muxora::Gateway {

namespace {

bool IsLoopback(const std::string& address) {
    boost::system::error_code error;
    const auto parsed = boost::asio::ip::make_address(address, error);
    return !error && parsed.is_loopback();
}

}  // namespace

int ReadOptions(int argc, char** argv, Options& options) {
    CLI::App app{"muxora serve: a live gateway. Each stream goes out by HTTP, WebSocket, HLS and DASH.",
                 "muxora serve"};
    app.set_version_flag("--version", std::string("muxora serve, library ") + MX_GetVersion());
    std::vector<std::string> streams;
    std::string log = "text";
    std::string segment;
    std::string keep;
    app.add_option(
        "streams", streams,
        "NAME=INPUT: a file (played in real time, again and again), rtsp://, rtmp://, listen+rtmp://, srt://, "
        "udp://, nats:// (published by another gateway), a .sdp file, or - for the standard input");
    app.add_option("--address", options.http.address, "Address to listen on (127.0.0.1)");
    app.add_option("--port", options.http.port, "Port of HTTP and WebSocket (8080; 0: any)");
    app.add_option("--rtsp-port", options.rtsp.port, "Port of RTSP (8554; 0: any)");
    app.add_flag_callback(
        "--no-rtsp", [&options] { options.rtsp.on = false; }, "No RTSP");
    app.add_flag(
        "--plain-rtsp", options.plain_rtsp,
        "RTSP, which is never encrypted, also where --cert and a token are given and --address is no loopback");
    app.add_option("--cert", options.certificate, "Certificate chain for TLS, PEM")->check(CLI::ExistingFile);
    app.add_option("--key", options.private_key, "Its private key, PEM")->check(CLI::ExistingFile);
    app.add_option("--view-token", options.access.view_token, "Needed to watch")->envname("MUXORA_VIEW_TOKEN");
    app.add_option("--api-token", options.access.api_token, "Needed to add and remove streams; without one nobody can")
        ->envname("MUXORA_API_TOKEN");
    app.add_option("--sign-key", options.access.sign_key, "Key of signed addresses")->envname("MUXORA_SIGN_KEY");
    app.add_option("--cors", options.cors, "Origin whose pages may read the streams, or *");
    app.add_option("--max-clients", options.http.max_clients, "Connections at a time (10000)")
        ->check(CLI::Range(size_t{1}, size_t{1000000}));
    app.add_option("--queue", options.http.queue_bytes, "Bytes that may wait for one client (8388608)")
        ->check(CLI::Range(size_t{65536}, size_t{1} << 30));
    app.add_option("--collect", options.collect_ms,
                   "Milliseconds that what goes to many clients is collected, at most (500; 0: never)")
        ->check(CLI::Range(0U, static_cast<unsigned>(kLongestCollect.count())));
    app.add_option("--record", options.recording.folder, "Record every stream into files below this folder");
    app.add_option("--segment", segment, "Length of a recording, cut at a key frame: 30s, 10m, 1h (10m)");
    app.add_option("--keep", keep, "What is kept of each stream's recordings: 7d, or 20G (everything)");
    app.add_option("--segment-seconds", options.segments.segment,
                   "Length of HLS and DASH segments, up to the next key frame (2)")
        ->check(CLI::Range(0.5, static_cast<double>(kLongestSegment.count())));
    app.add_option("--part-seconds", options.segments.part, "Length of Low-Latency HLS parts (0.25)")
        ->check(CLI::Range(0.1, 2.0));
    app.add_option(
        "--publish", options.publish,
        "Publish every stream for other gateways: nats://HOST:PORT, or more servers of a cluster behind commas");
    app.add_option("--from", options.from, "Serve every stream that is published there: nats://HOST:PORT");
    app.add_option("--relay-credentials", options.credentials, "File with the credentials of a user of NATS")
        ->check(CLI::ExistingFile);
    app.add_option("--threads", options.threads, "Threads (one a core)")->check(CLI::Range(size_t{1}, size_t{256}));
    app.add_option("--share", options.share, "Folder of the page and its players");
    app.add_option("--log", log, "text or json")->check(CLI::IsMember({"text", "json"}));
    app.add_flag("--quiet", options.quiet, "Warnings only");
    app.footer(
        "Example:\n"
        "  muxora serve door=rtsp://camera/stream film=film.mp4\n"
        "Exit codes: 0 done, 1 failed, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        std::cerr << "muxora serve: " << error.what() << " (see muxora serve --help)\n";
        return 2;
    }
    if (options.certificate.empty() != options.private_key.empty()) {
        std::cerr << "muxora serve: --cert and --key come together\n";
        return 2;
    }
    const bool secrets = !options.access.view_token.empty() || !options.access.sign_key.empty();
    if (!options.certificate.empty() && secrets && options.rtsp.on && !options.plain_rtsp &&
        !IsLoopback(options.http.address)) {
        std::cerr << "muxora serve: RTSP is not encrypted, and tokens would go to " << options.http.address
                  << " in the clear: --no-rtsp, or --plain-rtsp if that is meant\n";
        return 2;
    }
    if (!segment.empty() && !ParseSpan(segment, options.recording.segment_seconds)) {
        std::cerr << "muxora serve: --segment " << segment << ": a span is a number with s, m, h or d\n";
        return 2;
    }
    if (!keep.empty() && !ParseKeep(keep, options.recording)) {
        std::cerr << "muxora serve: --keep " << keep << ": a number with s, m, h, d, or with M, G, T for bytes\n";
        return 2;
    }
    for (const std::string& text : streams) {
        const size_t equals = text.find('=');
        if (equals == std::string::npos || !IsStreamName(text.substr(0, equals)) || equals + 1 == text.size()) {
            std::cerr << "muxora serve: " << WithoutSecrets(text)
                      << ": a stream is NAME=INPUT, the name of letters, digits, '-' and '_'\n";
            return 2;
        }
        options.streams.emplace_back(text.substr(0, equals), text.substr(equals + 1));
    }
    options.log = log == "json" ? LogForm::kJson : LogForm::kText;
    return -1;
}

}  // namespace Orvane::Muxora::Gateway
