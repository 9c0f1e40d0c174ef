#include "servers/metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <string>
#include <vector>

namespace Orvane::Muxora::Gateway {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

using Labels = std::vector<ClientMetric::Label>;

class Families {
  public:
    void Add(const char* name, const char* help, MetricType type, double value, Labels labels = {}) {
        MetricFamily& family = Find(name, help, type);
        ClientMetric metric;
        metric.label = std::move(labels);
        (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
        family.metric.push_back(std::move(metric));
    }
    const std::vector<MetricFamily>& All() const { return families_; }

  private:
    MetricFamily& Find(const char* name, const char* help, MetricType type) {
        for (MetricFamily& family : families_) {
            if (family.name == name) return family;
        }
        families_.push_back({name, help, type, {}});
        return families_.back();
    }

    std::vector<MetricFamily> families_;
};

template <typename Number>
double Value(const Number& number) {
    return static_cast<double>(number);
}

void AddStream(Families& all, const StreamStatus& status) {
    const Labels labels = {{"stream", status.name}};
    const auto with = [&labels](const char* name, const char* value) {
        Labels more = labels;
        more.push_back({name, value});
        return more;
    };
    constexpr auto kCounter = MetricType::Counter;
    constexpr auto kGauge = MetricType::Gauge;
    all.Add("muxora_stream_live", "1 while the input gives frames.", kGauge, status.state == "live" ? 1 : 0, labels);
    all.Add("muxora_stream_frames_total", "Frames taken from the input.", kCounter, Value(status.pictures),
            with("kind", "video"));
    all.Add("muxora_stream_frames_total", "", kCounter, Value(status.sounds), with("kind", "audio"));
    all.Add("muxora_stream_bytes_total", "Bytes of frames taken from the input.", kCounter, Value(status.bytes),
            labels);
    all.Add("muxora_stream_opened_total", "Times that the input was opened.", kCounter, Value(status.opened), labels);
    all.Add("muxora_stream_damaged_total", "Frames that the input marked as damaged.", kCounter, Value(status.damaged),
            labels);
    all.Add("muxora_stream_overruns_total", "Frames lost because the stream's thread was behind.", kCounter,
            Value(status.overruns), labels);
    all.Add("muxora_stream_relayed_total", "Messages of the stream that the relay's servers have taken.", kCounter,
            Value(status.relayed), labels);
    all.Add("muxora_stream_relay_lost_total", "Frames that were not published: the relay's servers took too few.",
            kCounter, Value(status.relay_lost), labels);
    const auto repairs = [&](const RepairCounts& counts, const char* kind) {
        const auto add = [&](const char* rule, uint64_t count) {
            Labels more = with("kind", kind);
            more.push_back({"rule", rule});
            all.Add("muxora_stream_time_repairs_total", "Times of frames that were repaired.", kCounter, Value(count),
                    more);
        };
        add("not_rising", counts.not_rising);
        add("jump", counts.jumps);
        add("early", counts.early);
    };
    repairs(status.video_repairs, "video");
    repairs(status.audio_repairs, "audio");
}

}  // namespace

Reply Metrics::Text() const {
    Families all;
    constexpr auto kCounter = MetricType::Counter;
    constexpr auto kGauge = MetricType::Gauge;
    if (counts_ != nullptr) {
        const HttpCounts& counts = *counts_;
        all.Add("muxora_connections", "Connections that are open.", kGauge, Value(counts.connections.load()));
        all.Add("muxora_connections_total", "Connections accepted.", kCounter, Value(counts.accepted.load()));
        all.Add("muxora_connections_refused_total", "Connections turned away: too many.", kCounter,
                Value(counts.turned_away.load()));
        all.Add("muxora_requests_total", "Requests.", kCounter, Value(counts.requests.load()));
        all.Add("muxora_bad_requests_total", "Requests that could not be read.", kCounter,
                Value(counts.bad_requests.load()));
        all.Add("muxora_timeouts_total", "Connections closed because nothing came in time.", kCounter,
                Value(counts.timed_out.load()));
        all.Add("muxora_stalled_clients_total", "Clients closed because they stayed behind.", kCounter,
                Value(counts.stalled.load()));
    }
    for (const StreamPtr& stream : hub_.All()) {
        AddStream(all, stream->Status());
        for (const auto& output : shelf_.Of(*stream)) {
            const Labels labels = {{"stream", stream->Name()}, {"form", ShortName(output->Shape())}};
            all.Add("muxora_clients", "Clients of an output.", kGauge, Value(output->Clients()), labels);
            all.Add("muxora_sent_bytes_total", "Bytes sent to clients.", kCounter, Value(output->Sent()), labels);
            all.Add("muxora_skips_total", "Times that a slow client had to skip to a key frame.", kCounter,
                    Value(output->Skipped()), labels);
        }
    }
    Reply reply =
        Reply::Text(200, prometheus::TextSerializer().Serialize(all.All()), "text/plain; version=0.0.4; charset=utf-8");
    reply.headers = {{"Cache-Control", "no-store"}};
    return reply;
}

Reply Metrics::Health() const {
    size_t live = 0;
    const auto all = hub_.All();
    for (const StreamPtr& stream : all)
        live += stream->Status().state == "live" ? 1 : 0;
    Reply reply =
        Reply::Text(200, "ok, " + std::to_string(live) + " of " + std::to_string(all.size()) + " streams live\n");
    reply.headers = {{"Cache-Control", "no-store"}};
    return reply;
}

}  // namespace Orvane::Muxora::Gateway
