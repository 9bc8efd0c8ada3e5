#include "playback/CMp3.h"

#include "playback/Mpg123FrameBackend.h"

#include <cstring>
#include <new>

namespace talvo {

std::unique_ptr<CMp3> CMp3::Create()
{
    std::unique_ptr<Mp3FrameBackend> decoder(new (std::nothrow) Mpg123FrameBackend);
    if (!decoder) {
        SetLastError(std::uint32_t(E_OUTOFMEMORY));
        return nullptr;
    }
    return Create(std::move(decoder));
}

std::unique_ptr<CMp3> CMp3::Create(std::unique_ptr<Mp3FrameBackend> decoder)
{
    if (!decoder) {
        SetLastError(std::uint32_t(E_POINTER));
        return nullptr;
    }
    if (const HRESULT hr = decoder->Setup(); Failed(hr)) {
        SetLastError(std::uint32_t(hr));
        return nullptr;
    }
    std::unique_ptr<CMp3> mp3(new (std::nothrow) CMp3(std::move(decoder)));
    if (!mp3) {
        SetLastError(std::uint32_t(E_OUTOFMEMORY));
    }
    return mp3;
}

CMp3::CMp3(std::unique_ptr<Mp3FrameBackend> decoder) : decoder_(std::move(decoder))
{
    for (InputBuffer& input : inputs_) {
        input.buffer = Mp3Buffer{input.bytes.data(), kFrameBytes, 0, 1};
    }
}

CMp3::~CMp3()
{
    if (signature_ != kSignature) {
        return;
    }
    decoder_.reset();
    signature_ = 0;
}

bool CMp3::Fail(HRESULT hr)
{
    SetLastError(std::uint32_t(hr));
    return false;
}

bool CMp3::OutputAccepted(HRESULT hr, const Mp3Buffer& output)
{
    if (Failed(hr)) {
        if (output.refCount != 1) {
            decoder_->Flush();
        }
        return Fail(hr);
    }
    if (output.refCount != 1) {
        decoder_->Flush();
        return Fail(E_UNEXPECTED);
    }
    return true;
}

bool CMp3::DecodeFrame(const std::uint8_t* frame, std::uint8_t* pcm)
{
    if (signature_ != kSignature) {
        return Fail(E_HANDLE);
    }
    if (frame == nullptr || pcm == nullptr) {
        return Fail(E_POINTER);
    }
    Mp3Buffer& input = inputs_[nextInput_].buffer;
    if (input.refCount != 1) {
        return Fail(E_UNEXPECTED);
    }
    std::memcpy(input.data, frame, kFrameBytes);
    input.length = kFrameBytes;
    if (const HRESULT hr = decoder_->ProcessInput(input); Failed(hr)) {
        return Fail(hr);
    }
    nextInput_ = (nextInput_ + 1) % kInputBuffers;

    Mp3Buffer output{pcm, kPcmBytes, 0, 1};
    bool incomplete = false;
    if (!OutputAccepted(decoder_->ProcessOutput(output, &incomplete), output)) {
        return false;
    }
    while (incomplete) {
        Mp3Buffer extra{discard_.data(), kPcmBytes, 0, 1};
        if (!OutputAccepted(decoder_->ProcessOutput(extra, &incomplete), extra)) {
            return false;
        }
    }

    if (output.length == 0) {
        std::memset(pcm, 0, kPcmBytes);
        return true;
    }
    return output.length == kPcmBytes || Fail(E_UNEXPECTED);
}

} // namespace talvo
