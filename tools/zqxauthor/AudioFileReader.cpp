#include "AudioFileReader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

namespace zqxauthor {
namespace {

constexpr AVRational kMs{1, 1000};

struct CodecContextFree {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct ResamplerFree {
    void operator()(SwrContext* s) const { swr_free(&s); }
};
struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};

std::string AvText(int averror)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(averror, text, sizeof text);
    return text;
}

void AppendTags(const AVDictionary* dictionary, TagList& tags)
{
    const AVDictionaryEntry* e = nullptr;
    while ((e = av_dict_get(dictionary, "", e, AV_DICT_IGNORE_SUFFIX))) {
        std::string key = e->key;
        std::transform(key.begin(), key.end(), key.begin(), [](unsigned char c) { return std::tolower(c); });
        tags.push_back({std::move(key), e->value});
    }
}

std::string ChapterTitle(const AVChapter& c)
{
    const AVDictionaryEntry* title = av_dict_get(c.metadata, "title", nullptr, 0);
    return title ? title->value : "";
}

// Converts decoded frames of any layout and rate to interleaved 16-bit PCM.
class PcmConverter {
public:
    bool Start(const AVCodecContext& codec, std::uint32_t rate, std::uint32_t channels, std::string& error)
    {
        AVChannelLayout out{};
        av_channel_layout_default(&out, int(channels));
        AVChannelLayout in{};
        if (codec.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC ||
            av_channel_layout_copy(&in, &codec.ch_layout) < 0)
            av_channel_layout_default(&in, codec.ch_layout.nb_channels);
        SwrContext* s = nullptr;
        int rc = swr_alloc_set_opts2(&s, &out, AV_SAMPLE_FMT_S16, int(rate), &in, codec.sample_fmt,
                                     codec.sample_rate, 0, nullptr);
        av_channel_layout_uninit(&in);
        av_channel_layout_uninit(&out);
        swr_.reset(s);
        if (rc >= 0)
            rc = swr_init(s);
        if (rc < 0) {
            error = "cannot start the sample-rate converter: " + AvText(rc);
            return false;
        }
        channels_ = channels;
        ratio_ = double(rate) / codec.sample_rate;
        return true;
    }
    // frame null: drains what the converter holds.
    std::span<const std::int16_t> Convert(const AVFrame* frame)
    {
        const int in = frame ? frame->nb_samples : 0;
        const int room = swr_get_out_samples(swr_.get(), in) + 16;
        out_.resize(std::size_t(room) * channels_);
        auto* dst = reinterpret_cast<std::uint8_t*>(out_.data());
        const int got =
            swr_convert(swr_.get(), &dst, room,
                        frame ? const_cast<const std::uint8_t**>(frame->extended_data) : nullptr, in);
        return {out_.data(), std::size_t(std::max(got, 0)) * channels_};
    }
    // Output frames that source frames make at the exact ratio.
    std::uint64_t Expected(std::uint64_t source) const
    {
        return std::uint64_t(std::llround(double(source) * ratio_));
    }

private:
    std::unique_ptr<SwrContext, ResamplerFree> swr_;
    std::uint32_t channels_ = 1;
    double ratio_ = 1;
    std::vector<std::int16_t> out_;
};

} // namespace

AudioFileReader::~AudioFileReader()
{
    avformat_close_input(&format_);
}

bool AudioFileReader::Fail(std::string message)
{
    error_ = std::move(message);
    return false;
}

bool AudioFileReader::Fail(const std::string& what, int averror)
{
    return Fail(what + " '" + path_ + "': " + AvText(averror));
}

bool AudioFileReader::Open(const std::string& path)
{
    path_ = path;
    // The reasons are ours to tell, once and plainly; FFmpeg's own log would repeat them.
    av_log_set_level(AV_LOG_QUIET);
    std::error_code ec;
    if (std::filesystem::is_regular_file(path, ec) && std::filesystem::file_size(path, ec) == 0)
        return Fail("cannot read audio file '" + path + "': the file is empty");
    if (const int rc = avformat_open_input(&format_, path.c_str(), nullptr, nullptr); rc < 0)
        return Fail("cannot read audio file", rc);
    if (const int rc = avformat_find_stream_info(format_, nullptr); rc < 0)
        return Fail("cannot read audio file", rc);
    stream_ = av_find_best_stream(format_, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (stream_ < 0)
        return Fail("audio file '" + path + "' has no audio stream");
    const AVStream* st = format_->streams[stream_];
    if (st->codecpar->sample_rate < 1 || st->codecpar->ch_layout.nb_channels < 1)
        return Fail("audio file '" + path + "' has no usable format");
    rate_ = std::uint32_t(st->codecpar->sample_rate);
    channels_ = std::uint32_t(st->codecpar->ch_layout.nb_channels);
    if (st->duration > 0)
        frames_ = std::uint64_t(av_rescale_q(st->duration, st->time_base, AVRational{1, int(rate_)}));
    else if (format_->duration > 0)
        frames_ = std::uint64_t(av_rescale(format_->duration, rate_, AV_TIME_BASE));
    ReadDescription();
    return true;
}

void AudioFileReader::ReadDescription()
{
    AppendTags(format_->metadata, tags_);
    AppendTags(format_->streams[stream_]->metadata, tags_);
    for (unsigned i = 0; i < format_->nb_chapters; ++i) {
        const AVChapter& c = *format_->chapters[i];
        chapters_.push_back({av_rescale_q(c.start, c.time_base, kMs),
                             c.end > c.start || c.end == c.start ? av_rescale_q(c.end, c.time_base, kMs) : -1,
                             ChapterTitle(c)});
    }
    for (unsigned i = 0; i < format_->nb_streams && cover_.empty(); ++i) {
        const AVStream* st = format_->streams[i];
        if ((st->disposition & AV_DISPOSITION_ATTACHED_PIC) && st->attached_pic.size > 0)
            cover_.assign(st->attached_pic.data, st->attached_pic.data + st->attached_pic.size);
    }
}

bool AudioFileReader::Convert(std::uint32_t rate, std::uint32_t channels, const Sink& sink)
{
    if (!format_)
        return Fail("no audio file is open");
    if (converted_)
        return Fail("audio file '" + path_ + "' was read already");
    converted_ = true;
    const AVStream* st = format_->streams[stream_];
    const AVCodec* codec = avcodec_find_decoder(st->codecpar->codec_id);
    if (!codec)
        return Fail("audio file '" + path_ + "' uses a codec this build cannot decode");
    std::unique_ptr<AVCodecContext, CodecContextFree> ctx(avcodec_alloc_context3(codec));
    if (!ctx)
        return Fail("out of memory");
    if (const int rc = avcodec_parameters_to_context(ctx.get(), st->codecpar); rc < 0)
        return Fail("cannot decode audio file", rc);
    ctx->pkt_timebase = st->time_base;
    if (const int rc = avcodec_open2(ctx.get(), codec, nullptr); rc < 0)
        return Fail("cannot decode audio file", rc);

    PcmConverter converter;
    std::unique_ptr<AVPacket, PacketFree> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameFree> frame(av_frame_alloc());
    std::uint64_t decoded = 0; // source frames
    std::uint64_t sent = 0;    // converted frames handed to the sink
    bool started = false;
    const auto deliver = [&](std::span<const std::int16_t> pcm) {
        if (pcm.empty())
            return true;
        sent += pcm.size() / channels;
        return sink(pcm, decoded) || Fail("");
    };
    const auto drainDecoder = [&]() {
        for (;;) {
            const int rc = avcodec_receive_frame(ctx.get(), frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF)
                return true;
            if (rc < 0)
                return Fail("cannot decode audio file", rc);
            if (!started) {
                std::string error;
                if (!converter.Start(*ctx, rate, channels, error))
                    return Fail(error);
                started = true;
            }
            decoded += std::uint64_t(frame->nb_samples);
            const bool ok = deliver(converter.Convert(frame.get()));
            av_frame_unref(frame.get());
            if (!ok)
                return false;
        }
    };
    for (;;) {
        const int rc = av_read_frame(format_, packet.get());
        if (rc == AVERROR_EOF)
            break;
        if (rc < 0)
            return Fail("cannot read audio file", rc);
        if (packet->stream_index == stream_) {
            const int sendRc = avcodec_send_packet(ctx.get(), packet.get());
            av_packet_unref(packet.get());
            // A damaged packet in the middle is skipped, as a player would; the decoder goes on.
            if (sendRc < 0 && sendRc != AVERROR_INVALIDDATA)
                return Fail("cannot decode audio file", sendRc);
        } else
            av_packet_unref(packet.get());
        if (!drainDecoder())
            return false;
    }
    avcodec_send_packet(ctx.get(), nullptr);
    if (!drainDecoder())
        return false;
    if (!started)
        return true;
    // The converter's filter delay leaves its total a sample or two off the exact length;
    // hold it to that, so the next input starts on time.
    const std::uint64_t expected = converter.Expected(decoded);
    std::span<const std::int16_t> tail = converter.Convert(nullptr);
    tail = tail.first(
        std::min<std::size_t>(tail.size(), std::size_t(expected > sent ? expected - sent : 0) * channels));
    if (!deliver(tail))
        return false;
    if (sent < expected) {
        const std::vector<std::int16_t> silence(std::size_t(expected - sent) * channels, 0);
        return deliver(silence);
    }
    return true;
}

} // namespace zqxauthor
