#include "gateway.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

#include "relay/relay_source.h"

namespace Orvane::Muxora::Gateway {

namespace asio = boost::asio;

namespace {

// For an input to come back from where it reads, and for a recording to get its index.
constexpr std::chrono::seconds kEndingTakes{10};

std::unique_ptr<asio::ssl::context> Tls(const Options& options) {
    if (options.certificate.empty()) return nullptr;
    auto context = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_server);
    context->set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_tlsv1 |
                         asio::ssl::context::no_tlsv1_1);
    try {
        context->use_certificate_chain_file(options.certificate);
        context->use_private_key_file(options.private_key, asio::ssl::context::pem);
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("certificate or key: " + error.code().message());
    }
    // A connection that sends nothing needs no buffers of 16 KiB each.
    SSL_CTX_set_mode(context->native_handle(), SSL_MODE_RELEASE_BUFFERS);
    return context;
}

// The page beside the program: installed, or as it was built.
std::string ShareFolder(const std::string& named) {
    if (!named.empty()) return named;
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const auto& folder : {program / "../share/muxora/gateway", program / "gateway-share"}) {
        if (std::filesystem::exists(folder / "index.html", error)) return folder.string();
    }
    return (program / "../share/muxora/gateway").string();
}

// What is not said of RTSP is as for HTTP.
RtspSettings RtspOf(const Options& options) {
    RtspSettings settings = options.rtsp;
    settings.address = options.http.address;
    settings.queue_bytes = options.http.queue_bytes;
    return settings;
}

size_t ThreadCount(size_t asked) {
    return asked != 0 ? asked : std::max<size_t>(std::thread::hardware_concurrency(), 1);
}

}  // namespace

GatewayRun::GatewayRun(const Options& options)
    : options_(options),
      access_(options.access),
      tls_(Tls(options)),
      workers_(ThreadCount(options.threads)),
      hub_(workers_),
      shelf_(workers_, std::chrono::milliseconds(options.collect_ms)),
      segments_(options.segments),
      api_(hub_, shelf_, access_, *this),
      metrics_(hub_, shelf_),
      page_(ShareFolder(options.share)),
      router_({hub_, shelf_, segments_, access_, api_, metrics_, page_, options.cors}),
      http_(workers_, options.http, tls_.get(), router_),
      rtsp_(RtspOf(options), hub_, shelf_, access_) {
    const auto relay = [&options](const std::string& address) {
        return NatsLink::To(ParseRelayAddress(address).servers, options.credentials);
    };
    if (!options.publish.empty()) publishing_ = relay(options.publish);
    const std::shared_ptr<NatsLink> from = options.from.empty() ? nullptr : relay(options.from);
    metrics_.SetCounts(http_.Counts());
    workers_.Start();
    http_.Start();
    rtsp_.Start();
    for (const auto& [name, input] : options.streams) {
        const std::string why = AddStream(name, input, true);
        if (why.empty()) continue;
        // The threads use what is about to be destroyed.
        http_.Stop();
        rtsp_.Stop();
        works_.clear();
        // A stream and what takes its frames hold each other until it ends.
        for (const StreamPtr& stream : hub_.All())
            stream->End();
        workers_.Stop();
        throw std::runtime_error(std::string(name).append(": ").append(why));
    }
    if (from == nullptr) return;
    finder_ = std::make_unique<RelayFinder>(
        from, [this](const std::string& name) { return AddStream(name, options_.from, true).empty(); });
}

GatewayRun::~GatewayRun() {
    End();
    workers_.Stop();
}

std::string GatewayRun::AddStream(const std::string& name, const std::string& input, bool trusted) {
    if (name == "api" || name == "page") return "that name is the gateway's own";
    const std::lock_guard lock(mutex_);
    if (ended_) return "the gateway ends";
    const StreamPtr stream = hub_.Add(name, WithoutSecrets(input));
    if (stream == nullptr) return "there is a stream of that name, or too many of them";
    segments_.Add(stream);
    try {
        works_[name] = Begin(stream, input, trusted);
        return "";
    } catch (const std::exception& error) {
        hub_.Remove(name);
        shelf_.Drop(*stream);
        segments_.Drop(*stream);
        return error.what();
    }
}

GatewayRun::Work GatewayRun::Begin(const StreamPtr& stream, const std::string& input, bool trusted) {
    Work work;
    const auto attach = [&stream](const std::shared_ptr<FrameSink>& sink) {
        asio::post(stream->Home().Context(), [stream, sink] { stream->Attach(sink); });
    };
    if (!options_.recording.folder.empty()) {
        attach(work.recorder = std::make_shared<Recorder>(stream, options_.recording));
    }
    const bool relayed = IsRelayAddress(input);
    // What is published already is not published again.
    if (publishing_ != nullptr && !relayed)
        attach(work.publisher = std::make_shared<RelayPublisher>(stream, publishing_));
    work.source = relayed ? OpenRelaySource(stream, input, trusted ? options_.credentials : "")
                          : OpenAvSource(stream, input, trusted);
    return work;
}

void GatewayRun::EndWork(Work work) {
    if (work.source != nullptr) {
        endings_.Begin([ending = std::shared_ptr<Source>(std::move(work.source))]() mutable { ending.reset(); });
    }
    const auto finish = [this](auto sink) {
        if (sink == nullptr) return;
        endings_.Begin([sink] {
            sink->OnEnd();
            sink->Wait();
        });
    };
    finish(std::move(work.recorder));
    finish(std::move(work.publisher));
}

bool GatewayRun::RemoveStream(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const StreamPtr stream = hub_.Remove(name);
    if (stream != nullptr) {
        shelf_.Drop(*stream);
        segments_.Drop(*stream);
    }
    if (auto work = works_.extract(name)) EndWork(std::move(work.mapped()));
    return stream != nullptr;
}

std::string GatewayRun::Addresses() const {
    const std::string& address = options_.http.address;
    const std::string bare = address.find(':') != std::string::npos ? "[" + address + "]" : address;
    const std::string host = bare + ":" + std::to_string(http_.Port());
    const std::string http = std::string(tls_ != nullptr ? "https://" : "http://") + host;
    const std::string ws = std::string(tls_ != nullptr ? "wss://" : "ws://") + host;
    std::string text = http + "/\n" + http + "/api/streams\n" + http + "/metrics\n";
    for (const StreamPtr& stream : hub_.All()) {
        size_t count = 0;
        const Form* forms = AllForms(count);
        for (size_t i = 0; i < count; ++i)
            text += http + "/" + stream->Name() + std::string(forms[i].extension) + "\n";
        for (size_t i = 0; i < count; ++i) {
            if (forms[i].web_socket) text += ws + "/" + stream->Name() + std::string(forms[i].extension) + "\n";
        }
        text += http + "/" + stream->Name() + "/index.m3u8\n";
        text += http + "/" + stream->Name() + "/manifest.mpd\n";
        if (rtsp_.Port() != 0)
            text += "rtsp://" + bare + ":" + std::to_string(rtsp_.Port()) + "/" + stream->Name() + "\n";
    }
    return text;
}

std::string GatewayRun::Signs() const {
    std::string text;
    for (const StreamPtr& stream : hub_.All()) {
        const StreamStatus status = stream->Status();
        size_t clients = 0;
        for (const auto& output : shelf_.Of(*stream))
            clients += output->Clients();
        char line[300];
        std::snprintf(line, sizeof line, "%-16s %-7s %s %s %.1f/s %.2f Mbit/s, %zu viewers\n", status.name.c_str(),
                      status.state.c_str(), status.video.c_str(), status.audio.c_str(), status.pictures_per_second,
                      status.bits_per_second / 1e6, clients);
        text += line;
    }
    return text;
}

bool GatewayRun::End() {
    std::map<std::string, Work> works;
    {
        const std::lock_guard lock(mutex_);
        if (ended_) return true;
        ended_ = true;
        works.swap(works_);
    }
    http_.Stop();
    rtsp_.Stop();
    finder_.reset();
    // Each recording gets its index, and what came is published.
    for (auto& [name, work] : works)
        EndWork(std::move(work));
    for (const StreamPtr& stream : hub_.All())
        hub_.Remove(stream->Name());
    // Clients hear of the end; those who do not listen are not waited for.
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (http_.Counts().connections + rtsp_.Clients() > 0 && std::chrono::steady_clock::now() < patience)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return endings_.Wait(kEndingTakes);
}

}  // namespace Orvane::Muxora::Gateway
