#include "AudioFileReader.h"

#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace zqxauthor {
namespace {

constexpr sf_count_t kChunkFrames = 8192;

} // namespace

AudioFileReader::~AudioFileReader()
{
    if (file_)
        sf_close(file_);
}

bool AudioFileReader::Fail(std::string message)
{
    error_ = std::move(message);
    return false;
}

bool AudioFileReader::Open(const std::string& path)
{
    path_ = path;
    SF_INFO info{};
    file_ = sf_open(path.c_str(), SFM_READ, &info);
    if (!file_)
        return Fail("cannot read audio file '" + path + "': " + sf_strerror(nullptr));
    if (info.channels < 1 || info.samplerate < 1)
        return Fail("audio file '" + path + "' has no usable format");
    rate_ = std::uint32_t(info.samplerate);
    channels_ = std::uint32_t(info.channels);
    frames_ = info.frames > 0 ? std::uint64_t(info.frames) : 0;
    return true;
}

bool AudioFileReader::Convert(std::uint32_t rate, std::uint32_t channels, const Sink& sink)
{
    if (!file_)
        return Fail("no audio file is open");
    if (sf_seek(file_, 0, SEEK_SET) < 0 && frames_ > 0)
        return Fail("cannot rewind audio file '" + path_ + "'");
    SRC_STATE* resampler = nullptr;
    if (rate != rate_) {
        int err = 0;
        resampler = src_new(SRC_SINC_MEDIUM_QUALITY, int(channels), &err);
        if (!resampler)
            return Fail(std::string("cannot start the sample-rate converter: ") + src_strerror(err));
    }
    const double ratio = double(rate) / rate_;
    std::vector<float> in(std::size_t(kChunkFrames) * channels_);
    std::vector<float> mixed(std::size_t(kChunkFrames) * channels);
    std::vector<float> converted(std::size_t(kChunkFrames * ratio + 64) * channels);
    std::vector<std::int16_t> out(converted.size());
    std::uint64_t done = 0; // source frames read
    std::uint64_t sent = 0; // converted frames handed to the sink
    auto expected = [&](std::uint64_t source) {
        return std::int64_t(std::llround(double(source) * ratio));
    };
    bool ok = true;
    for (bool end = false; ok && !end;) {
        const sf_count_t got = sf_readf_float(file_, in.data(), kChunkFrames);
        if (got < 0 || sf_error(file_) != SF_ERR_NO_ERROR) {
            ok = Fail("cannot read audio file '" + path_ + "': " + sf_strerror(file_));
            break;
        }
        end = got < kChunkFrames;
        done += std::uint64_t(got);
        for (sf_count_t f = 0; f < got; ++f) {
            const float* src = &in[std::size_t(f) * channels_];
            float* dst = &mixed[std::size_t(f) * channels];
            if (channels == 1) {
                float sum = 0;
                for (std::uint32_t c = 0; c < channels_; ++c)
                    sum += src[c];
                dst[0] = sum / float(channels_);
            } else {
                // Stereo out: mono is doubled, more channels keep their first two.
                dst[0] = src[0];
                dst[1] = channels_ > 1 ? src[1] : src[0];
            }
        }
        const float* result = mixed.data();
        long produced = long(got);
        if (resampler) {
            SRC_DATA data{};
            data.data_in = mixed.data();
            data.input_frames = long(got);
            data.data_out = converted.data();
            data.output_frames = long(converted.size() / channels);
            data.src_ratio = ratio;
            data.end_of_input = end ? 1 : 0;
            // Drain: at the end of input the converter may hold more than one call returns.
            for (;;) {
                const int err = src_process(resampler, &data);
                if (err) {
                    ok = Fail(std::string("sample-rate conversion failed: ") + src_strerror(err));
                    break;
                }
                // The converter's filter delay makes its total drift from the exact length by a
                // sample or two; hold it to the exact length so later sections start on time.
                long n = data.output_frames_gen;
                if (end)
                    n = std::min<long>(n,
                                       long(std::max<std::int64_t>(0, expected(done) - std::int64_t(sent))));
                src_float_to_short_array(converted.data(), out.data(), int(n * channels));
                sent += std::uint64_t(n);
                if (n > 0 && !sink(std::span(out.data(), std::size_t(n) * channels), done)) {
                    ok = Fail("");
                    break;
                }
                data.data_in += data.input_frames_used * channels;
                data.input_frames -= data.input_frames_used;
                if (data.input_frames == 0 && (!end || data.output_frames_gen == 0))
                    break;
            }
            if (ok && end && std::int64_t(sent) < expected(done)) {
                std::fill(out.begin(), out.end(), 0);
                while (ok && std::int64_t(sent) < expected(done)) {
                    const auto n =
                        std::min<std::uint64_t>(std::uint64_t(expected(done)) - sent, out.size() / channels);
                    sent += n;
                    if (!sink(std::span(out.data(), std::size_t(n) * channels), done))
                        ok = Fail("");
                }
            }
            continue;
        }
        src_float_to_short_array(result, out.data(), int(produced * channels));
        if (produced > 0 && !sink(std::span(out.data(), std::size_t(produced) * channels), done))
            ok = Fail("");
    }
    if (resampler)
        src_delete(resampler);
    return ok;
}

} // namespace zqxauthor
