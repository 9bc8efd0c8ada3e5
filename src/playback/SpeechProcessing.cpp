#include "playback/SpeechProcessing.h"

#include <sonic.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace talvo {
namespace {

bool windowIsSilent(const std::int16_t* samples, std::size_t count)
{
    return std::all_of(samples, samples + count,
                       [](std::int16_t s) { return std::abs(int{s}) < SpeechProcessing::kSilencePeak; });
}

} // namespace

SpeechProcessing::SpeechProcessing() = default;

SpeechProcessing::~SpeechProcessing()
{
    if (sonic_)
        sonicDestroyStream(sonic_);
}

void SpeechProcessing::Restart(std::uint32_t sampleRate, std::uint32_t channels, int speedTenths,
                               bool skipSilence)
{
    sampleRate_ = sampleRate;
    channels_ = std::max<std::uint32_t>(channels, 1);
    speedTenths_ = IsSpeed(speedTenths) ? speedTenths : kNormalSpeed;
    skipSilence_ = skipSilence;
    finished_ = false;
    if (sonic_) {
        sonicDestroyStream(sonic_);
        sonic_ = nullptr;
    }
    if (speedTenths_ != kNormalSpeed) {
        sonic_ = sonicCreateStream(static_cast<int>(sampleRate_), static_cast<int>(channels_));
        sonicSetSpeed(sonic_, static_cast<float>(speedTenths_) / kNormalSpeed);
    }
    window_.clear();
    heldSilence_.clear();
    silentRunFrames_ = 0;
    ready_.clear();
    readOffset_ = 0;
    programFed_ = speedInput_ = skippedPassed_ = framesOut_ = programTaken_ = 0;
    skips_.clear();
}

std::uint32_t SpeechProcessing::framesToMs(std::uint64_t frames) const
{
    return sampleRate_ ? static_cast<std::uint32_t>(frames * 1000 / sampleRate_) : 0;
}

void SpeechProcessing::Feed(const std::uint8_t* pcm, std::uint32_t bytes)
{
    const std::size_t samples = bytes / sizeof(std::int16_t) / channels_ * channels_;
    if (samples == 0 || finished_)
        return;
    scratch_.resize(samples);
    std::memcpy(scratch_.data(), pcm, samples * sizeof(std::int16_t));
    const std::uint64_t frames = samples / channels_;
    programFed_ += frames;
    if (skipSilence_)
        feedSilenceStage(scratch_.data(), frames);
    else
        feedSpeedStage(scratch_.data(), frames);
}

void SpeechProcessing::feedSilenceStage(const std::int16_t* frames, std::uint64_t count)
{
    const std::size_t windowSamples =
        std::max<std::size_t>(sampleRate_ * kSilenceWindowMs / 1000, 1) * channels_;
    const std::int16_t* end = frames + count * channels_;
    for (const std::int16_t* p = frames; p < end;) {
        const std::size_t take = std::min<std::size_t>(windowSamples - window_.size(), end - p);
        window_.insert(window_.end(), p, p + take);
        p += take;
        if (window_.size() == windowSamples) {
            passWindow(window_.data(), window_.size() / channels_);
            window_.clear();
        }
    }
}

void SpeechProcessing::passWindow(const std::int16_t* frames, std::uint64_t count)
{
    const std::size_t samples = count * channels_;
    if (!windowIsSilent(frames, samples)) {
        // A short pause was a pause: what was held back plays.
        if (!heldSilence_.empty())
            feedSpeedStage(heldSilence_.data(), heldSilence_.size() / channels_);
        heldSilence_.clear();
        silentRunFrames_ = 0;
        feedSpeedStage(frames, count);
        return;
    }
    silentRunFrames_ += count;
    const std::uint64_t kept = std::uint64_t{sampleRate_} * kSilenceKeptMs / 1000;
    const std::uint64_t longer = std::uint64_t{sampleRate_} * kSilenceLongerThanMs / 1000;
    if (silentRunFrames_ <= kept) {
        feedSpeedStage(frames, count);
    } else if (silentRunFrames_ <= longer) {
        heldSilence_.insert(heldSilence_.end(), frames, frames + samples);
    } else {
        skipFrames(heldSilence_.size() / channels_ + count);
        heldSilence_.clear();
    }
}

void SpeechProcessing::skipFrames(std::uint64_t count)
{
    if (count == 0)
        return;
    if (!skips_.empty() && skips_.back().atFrame == speedInput_)
        skips_.back().frames += count;
    else
        skips_.push_back({speedInput_, count});
}

void SpeechProcessing::feedSpeedStage(const std::int16_t* frames, std::uint64_t count)
{
    speedInput_ += count;
    if (!sonic_) {
        compactReady();
        ready_.insert(ready_.end(), frames, frames + count * channels_);
        return;
    }
    // sonic takes a non-const pointer but only reads it.
    sonicWriteShortToStream(sonic_, const_cast<short*>(frames), static_cast<int>(count));
    drainSpeedStage();
}

void SpeechProcessing::drainSpeedStage()
{
    const int available = sonicSamplesAvailable(sonic_);
    if (available <= 0)
        return;
    compactReady();
    const std::size_t old = ready_.size();
    ready_.resize(old + static_cast<std::size_t>(available) * channels_);
    const int read = sonicReadShortFromStream(sonic_, ready_.data() + old, available);
    ready_.resize(old + static_cast<std::size_t>(std::max(read, 0)) * channels_);
}

void SpeechProcessing::compactReady()
{
    // Compacted where the ready buffer grows, so it never holds more than a
    // block or two of what was taken.
    ready_.erase(ready_.begin(), ready_.begin() + static_cast<std::ptrdiff_t>(readOffset_));
    readOffset_ = 0;
}

void SpeechProcessing::Finish()
{
    if (finished_)
        return;
    // A trailing part window and a pause too short to skip still play.
    if (!window_.empty())
        passWindow(window_.data(), window_.size() / channels_);
    window_.clear();
    if (!heldSilence_.empty())
        feedSpeedStage(heldSilence_.data(), heldSilence_.size() / channels_);
    heldSilence_.clear();
    if (sonic_) {
        sonicFlushStream(sonic_);
        drainSpeedStage();
    }
    finished_ = true;
}

std::uint32_t SpeechProcessing::AvailableBytes() const
{
    return static_cast<std::uint32_t>((ready_.size() - readOffset_) * sizeof(std::int16_t));
}

std::uint64_t SpeechProcessing::programFrameAtOutput(std::uint64_t outputFrame)
{
    if (finished_ && readOffset_ == ready_.size())
        return programFed_;
    std::uint64_t input = outputFrame * static_cast<std::uint64_t>(speedTenths_) / kNormalSpeed;
    input = std::min(input, speedInput_);
    while (!skips_.empty() && skips_.front().atFrame <= input) {
        skippedPassed_ += skips_.front().frames;
        skips_.pop_front();
    }
    return std::min(input + skippedPassed_, programFed_);
}

SpeechProcessing::Taken SpeechProcessing::Take(std::uint8_t* out, std::uint32_t room)
{
    const std::size_t frames = std::min<std::size_t>(room / sizeof(std::int16_t) / channels_,
                                                     (ready_.size() - readOffset_) / channels_);
    const std::size_t samples = frames * channels_;
    std::memcpy(out, ready_.data() + readOffset_, samples * sizeof(std::int16_t));
    readOffset_ += samples;
    if (readOffset_ == ready_.size()) {
        ready_.clear();
        readOffset_ = 0;
    }
    framesOut_ += frames;
    const std::uint64_t program = std::max(programFrameAtOutput(framesOut_), programTaken_);
    Taken taken{static_cast<std::uint32_t>(samples * sizeof(std::int16_t)),
                framesToMs(program) - framesToMs(programTaken_)};
    programTaken_ = program;
    return taken;
}

std::uint32_t SpeechProcessing::HeldProgramMs() const
{
    return framesToMs(programFed_) - framesToMs(programTaken_);
}

void SpeechProcessing::SetFade(std::uint64_t endFrame, std::uint64_t fadeFrames)
{
    fade_ = Fade{endFrame, std::max<std::uint64_t>(fadeFrames, 1)};
}

void SpeechProcessing::ApplyFade(std::uint8_t* pcm, std::uint32_t bytes, std::uint64_t firstFrame) const
{
    if (!fade_ || firstFrame + bytes / sizeof(std::int16_t) / channels_ <=
                      fade_->endFrame - std::min(fade_->endFrame, fade_->frames))
        return;
    auto* samples = reinterpret_cast<std::int16_t*>(pcm);
    const std::size_t frames = bytes / sizeof(std::int16_t) / channels_;
    for (std::size_t f = 0; f < frames; ++f) {
        const std::uint64_t frame = firstFrame + f;
        const std::uint64_t left = frame < fade_->endFrame ? fade_->endFrame - frame : 0;
        if (left >= fade_->frames)
            continue;
        for (std::size_t c = 0; c < channels_; ++c) {
            std::int16_t& s = samples[f * channels_ + c];
            s = static_cast<std::int16_t>(std::int64_t{s} * static_cast<std::int64_t>(left) /
                                          static_cast<std::int64_t>(fade_->frames));
        }
    }
}

} // namespace talvo
