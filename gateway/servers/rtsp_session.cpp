#include "servers/rtsp_session.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <utility>

#include "bounds.h"
#include "common/sdp.h"
#include "protocols/request.h"

namespace Orvane::Muxora::Gateway {

namespace asio = boost::asio;

namespace {

// A client over UDP says at least once in this time that it is there, by a request or a receiver report.
constexpr std::chrono::seconds kSessionLasts{60};
constexpr std::chrono::seconds kReportEvery{5};
// A client that does not read, and sends request after request.
constexpr size_t kMaxTextsWaiting = 64;
constexpr uint16_t kFirstPort = 20000;
constexpr uint16_t kPorts = 20000;
constexpr uint32_t kPacketHead = 12;

Tools::MediaStream StreamOf(const Tools::MediaFrame& frame) {
    Tools::MediaStream stream;
    stream.type = frame.type;
    stream.codec = frame.codec;
    stream.width = frame.width;
    stream.height = frame.height;
    stream.frame_rate = frame.frame_rate;
    stream.samples_per_sec = frame.samples_per_sec;
    stream.bits_per_sample = frame.bits_per_sample;
    stream.channels = frame.channels;
    return stream;
}

// The description with what RTSP adds: an address of control for each track.
std::string WithControl(const std::string& sdp) {
    std::string out;
    std::string control;
    size_t start = 0;
    while (start < sdp.size()) {
        const size_t end = sdp.find("\r\n", start) + 2;
        const std::string line = sdp.substr(start, end - start);
        start = end;
        if (line.compare(0, 2, "m=") == 0) {
            out += control;
            control = std::string("a=control:trackID=") + (line.compare(2, 5, "video") == 0 ? "0" : "1") + "\r\n";
        }
        out += line;
        if (line.compare(0, 2, "t=") == 0) out += "a=control:*\r\na=range:npt=now-\r\n";
    }
    return out + control;
}

// What stands in the gateway's memory of the stream: a key frame, and a frame of sound.
std::string DescriptionOf(const Stream& stream) {
    const Frame* video = nullptr;
    const Frame* audio = nullptr;
    for (const FramePtr& frame : stream.CurrentGop()) {
        if (frame->IsVideo() && frame->IsKey() && video == nullptr) video = frame.get();
        if (!frame->IsVideo() && audio == nullptr) audio = frame.get();
    }
    const MXHeaderInfo header = stream.HeaderInfo();
    Tools::SdpStream tracks[2];
    Tools::MediaStream media[2];
    for (const Frame* frame : {video, audio}) {
        if (frame == nullptr) continue;
        const size_t i = frame->IsVideo() ? 0 : 1;
        const RtpTrack rtp = RtpTrackOf(header, frame->IsVideo());
        if (rtp.clock == 0) continue;
        media[i] = StreamOf(frame->media);
        tracks[i] = {&media[i], &frame->media, rtp.payload_type, rtp.clock, 0};
    }
    if (tracks[0].stream == nullptr && tracks[1].stream == nullptr) return {};
    return WithControl(Tools::Sdp("0.0.0.0", tracks[0], tracks[1]));
}

}  // namespace

RtspSession::RtspSession(const Place& place, Socket socket)
    : place_(place),
      socket_(std::move(socket)),
      session_(RandomToken()),
      queue_(place.queue_bytes),
      reports_(place.worker.Context()) {
    ++place_.clients;
}

RtspSession::~RtspSession() {
    --place_.clients;
}

void RtspSession::Run() {
    watch_ = place_.worker.Look(*this);
    Expect(kRequestTakes);
    boost::system::error_code ignored;
    socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
    Read();
}

void RtspSession::Close() {
    if (!watch_) return;
    const auto self = shared_from_this();
    place_.worker.Forget(*watch_);
    watch_.reset();
    reports_.cancel();
    if (playing_) feed_->Leave(place_.worker, self);
    playing_ = false;
    boost::system::error_code ignored;
    for (Track& track : tracks_) {
        if (track.rtp_socket) track.rtp_socket->close(ignored);
        if (track.rtcp_socket) track.rtcp_socket->close(ignored);
    }
    socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
}

void RtspSession::Read() {
    socket_.async_read_some(asio::buffer(incoming_),
                            [self = shared_from_this()](const boost::system::error_code& error, size_t size) {
                                if (!self->watch_) return;
                                if (error) return self->Close();
                                self->reader_.Put({self->incoming_.data(), size});
                                for (;;) {
                                    const RtspReader::Result result = self->reader_.Next();
                                    if (result == RtspReader::Result::kMore) break;
                                    if (result == RtspReader::Result::kBad) {
                                        self->SendText(PrintRtspReply(400, ""));
                                        return self->Close();
                                    }
                                    self->Expect(kSessionLasts);
                                    if (result == RtspReader::Result::kRequest)
                                        self->OnRequest(self->reader_.Request());
                                    if (!self->watch_) return;
                                }
                                self->Read();
                            });
}

void RtspSession::Reply(unsigned status, const RtspRequest& request, const RtspFields& fields,
                        const std::string& body) {
    SendText(PrintRtspReply(status, request.Field("cseq"), fields, body));
}

void RtspSession::OnRequest(const RtspRequest& request) {
    const std::string& method = request.method;
    if (method == "OPTIONS") {
        return Reply(200, request, {{"Public", "OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN, GET_PARAMETER"}});
    }
    if (method == "GET_PARAMETER" || method == "SET_PARAMETER") return Reply(200, request, {{"Session", session_}});
    if (method == "TEARDOWN") {
        Reply(200, request, {{"Session", session_}});
        ending_ = true;
        if (!writing_) Close();
        return;
    }
    if (method != "DESCRIBE" && method != "SETUP" && method != "PLAY") return Reply(501, request);
    const auto address = ParseRtspAddress(request.uri);
    if (!address) return Reply(400, request);
    Request access;
    if (!ParseTarget("/" + address->stream + "?" + address->query, access)) return Reply(400, request);
    access.authorization = request.Field("authorization");
    if (!place_.access.MayView(access, address->stream, WallClockUs() / 1000000)) {
        return Reply(401, request, {{"WWW-Authenticate", "Bearer"}});
    }
    const StreamPtr stream = place_.hub.Find(address->stream);
    if (stream == nullptr) return Reply(404, request);
    if (method == "DESCRIBE") return Describe(request, stream);
    if (method == "SETUP") return SetUp(request, *address, stream);
    if (request.Field("session").substr(0, session_.size()) != session_) return Reply(454, request);
    // A stream of that name may be another one by now.
    if (stream_ != stream) return Reply(455, request);
    Play(request);
}

void RtspSession::Describe(const RtspRequest& request, const StreamPtr& stream) {
    asio::post(stream->Home().Context(), [self = shared_from_this(), request, stream] {
        std::string description = DescriptionOf(*stream);
        asio::dispatch(self->place_.worker.Context(), [self, request, body = std::move(description)] {
            if (!self->watch_) return;
            if (body.empty()) return self->Reply(503, request, {{"Retry-After", "1"}});
            std::string base = request.uri;
            if (base.empty() || base.back() != '/') base += '/';
            self->Reply(200, request, {{"Content-Type", "application/sdp"}, {"Content-Base", base}}, body);
        });
    });
}

void RtspSession::SetUp(const RtspRequest& request, const RtspAddress& address, const StreamPtr& stream) {
    if (playing_ || (stream_ != nullptr && stream_ != stream)) return Reply(455, request);
    if (!address.track || *address.track >= tracks_.size()) return Reply(459, request);
    const auto transport = ParseRtspTransport(request.Field("transport"));
    if (!transport) return Reply(461, request);
    Track& track = tracks_[*address.track];
    track.set_up = false;  // until it is: what an earlier request set up is given up
    track.rtp = RtpTrackOf(stream->HeaderInfo(), *address.track == 0);
    if (track.rtp.clock == 0) return Reply(404, request);
    track.transport = *transport;
    char ssrc[16];
    std::snprintf(ssrc, sizeof ssrc, ";ssrc=%08X", track.rtp.ssrc);
    const std::string pair = std::to_string(transport->rtp) + "-" + std::to_string(transport->rtcp);
    std::string answer;
    if (transport->interleaved) {
        answer = "RTP/AVP/TCP;unicast;interleaved=" + pair + ssrc;
    } else {
        if (!OpenPorts(track)) return Reply(503, request);
        answer = "RTP/AVP;unicast;client_port=" + pair +
                 ";server_port=" + std::to_string(track.rtp_socket->local_endpoint().port()) + "-" +
                 std::to_string(track.rtcp_socket->local_endpoint().port()) + ssrc;
    }
    track.set_up = true;
    stream_ = stream;
    Reply(200, request,
          {{"Transport", answer}, {"Session", session_ + ";timeout=" + std::to_string(kSessionLasts.count())}});
}

// An even port and the next one, as RFC 3550 11 has it.
bool RtspSession::OpenPorts(Track& track) {
    static std::atomic<uint32_t> next{0};
    boost::system::error_code error;
    const auto local = socket_.local_endpoint(error).address();
    const auto remote = socket_.remote_endpoint(error).address();
    if (error) return false;
    for (int tries = 0; tries < 200; ++tries) {
        const auto port = static_cast<uint16_t>(kFirstPort + next++ * 2 % kPorts);
        Udp::socket rtp(place_.worker.Context());
        Udp::socket rtcp(place_.worker.Context());
        const auto open = [&](Udp::socket& socket, uint16_t own, uint16_t theirs) {
            socket.open(local.is_v4() ? Udp::v4() : Udp::v6(), error);
            if (!error) socket.bind({local, own}, error);
            if (!error) socket.connect({remote, theirs}, error);
            if (!error) socket.non_blocking(true, error);
            return !error;
        };
        if (!open(rtp, port, track.transport.rtp)) continue;
        if (!open(rtcp, static_cast<uint16_t>(port + 1), track.transport.rtcp)) continue;
        track.rtp_socket.emplace(std::move(rtp));
        track.rtcp_socket.emplace(std::move(rtcp));
        return true;
    }
    return false;
}

void RtspSession::Play(const RtspRequest& request) {
    Reply(200, request, {{"Session", session_}, {"Range", "npt=now-"}});
    if (playing_) return;
    feed_ = place_.shelf.Get(stream_, kRtpForm);
    if (feed_ == nullptr) return Close();
    playing_ = true;
    for (Track& track : tracks_) {
        if (track.rtcp_socket) WatchReceiver(track);
    }
    feed_->Join(place_.worker, shared_from_this());
    ReportEvery();
}

void RtspSession::Take(std::span<const BlockPtr> blocks) {
    for (const BlockPtr& block : blocks)
        Offer(block);
    if (watch_ && !writing_) WriteNext();
}

void RtspSession::Offer(const BlockPtr& block) {
    Track& track = TrackOf(*block);
    if (!track.set_up || !watch_) return;
    track.last_time = static_cast<uint32_t>(block->dts);
    track.last_wall_us = block->arrival_us;
    // The first report comes at once: players need it to bring sound and picture together.
    if (!std::exchange(track.begun, true)) Report(track, false);
    if (!watch_) return;
    if (!track.transport.interleaved) {
        SendUdp(block);
    } else if (queue_.Offer(block)) {
        feed_->CountSkip();
    }
}

void RtspSession::SendUdp(const BlockPtr& block) {
    Track& track = TrackOf(*block);
    size_t start = 0;
    boost::system::error_code ignored;
    for (const uint32_t end : block->packet_ends) {
        // What the system does not take now is lost, as on any network.
        track.rtp_socket->send(asio::buffer(block->bytes.data() + start, end - start), 0, ignored);
        ++track.packets;
        track.octets += end - static_cast<uint32_t>(start) - kPacketHead;
        start = end;
    }
    feed_->CountSent(block->bytes.size());
}

void RtspSession::WatchReceiver(Track& track) {
    track.rtcp_socket->async_receive(asio::buffer(track.ignored), [self = shared_from_this(), &track](
                                                                      const boost::system::error_code& error, size_t) {
        if (!self->watch_ || error == asio::error::operation_aborted) return;
        // A port that nobody listens at (ICMP) is no sign of life.
        if (!error) self->Expect(kSessionLasts);
        self->WatchReceiver(track);
    });
}

bool RtspSession::AnyInterleaved() const {
    return (tracks_[0].set_up && tracks_[0].transport.interleaved) ||
           (tracks_[1].set_up && tracks_[1].transport.interleaved);
}

void RtspSession::End() {
    for (Track& track : tracks_) {
        if (track.set_up) Report(track, true);
    }
    ending_ = true;
    if (!writing_) WriteNext();
}

void RtspSession::Report(Track& track, bool goodbye) {
    if (!track.begun) return;
    const std::string report =
        PrintSenderReport({track.rtp.ssrc, track.last_wall_us, track.last_time, track.packets, track.octets, goodbye});
    if (!track.transport.interleaved) {
        boost::system::error_code ignored;
        track.rtcp_socket->send(asio::buffer(report), 0, ignored);
        return;
    }
    std::string framed = {'$', static_cast<char>(track.transport.rtcp), static_cast<char>(report.size() >> 8),
                          static_cast<char>(report.size())};
    SendText(framed + report);
}

void RtspSession::ReportEvery() {
    reports_.expires_after(kReportEvery);
    reports_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (error || self == nullptr || !self->watch_) return;
        for (Track& track : self->tracks_) {
            if (track.set_up) self->Report(track, false);
        }
        self->ReportEvery();
    });
}

void RtspSession::SendText(std::string text) {
    if (texts_.size() >= kMaxTextsWaiting) {
        // Not at once: whoever says this may be in the middle of a request, or of handing out a block to all.
        asio::post(place_.worker.Context(), [self = shared_from_this()] { self->Close(); });
        return;
    }
    texts_.push_back(std::move(text));
    if (!writing_) WriteNext();
}

void RtspSession::Gathered(const BlockPtr& block) {
    Track& track = TrackOf(*block);
    size_t start = 0;
    for (const uint32_t end : block->packet_ends) {
        const size_t size = end - start;
        // RFC 2326 10.12. Room was made before: the buffers point into the vector.
        heads_.push_back({'$', static_cast<uint8_t>(track.transport.rtp), static_cast<uint8_t>(size >> 8),
                          static_cast<uint8_t>(size)});
        gather_.Add(heads_.back().data(), heads_.back().size());
        gather_.Add(block->bytes.data() + start, size);
        ++track.packets;
        track.octets += static_cast<uint32_t>(size) - kPacketHead;
        start = end;
    }
    feed_->CountSent(block->bytes.size());
}

void RtspSession::WriteNext() {
    if (gather_.Done()) {
        gather_.Clear();
        heads_.clear();
        in_flight_.clear();
        if (!texts_.empty()) {
            text_ = std::move(texts_.front());
            texts_.pop_front();
            gather_.Add(text_.data(), text_.size());
        } else if (!queue_.Empty()) {
            constexpr size_t kBlocksPerWrite = 16;
            queue_.Take(kBlocksPerWrite, in_flight_);
            size_t packets = 0;
            for (const BlockPtr& block : in_flight_)
                packets += block->packet_ends.size();
            heads_.reserve(packets);
            for (const BlockPtr& block : in_flight_)
                Gathered(block);
        } else {
            writing_ = false;
            if (ending_) Close();
            return;
        }
    }
    writing_ = true;
    if (AnyInterleaved()) Expect(kStalledFor);
    socket_.async_write_some(gather_.Rest(),
                             [self = shared_from_this()](const boost::system::error_code& error, size_t written) {
                                 if (!self->watch_) return;
                                 if (error) return self->Close();
                                 self->gather_.Advance(written);
                                 self->Expect(kSessionLasts);
                                 self->WriteNext();
                             });
}

}  // namespace Orvane::Muxora::Gateway
