#include "playback/Mpg123FrameBackend.h"

#include <mpg123.h>

#include <mutex>

namespace talvo {

namespace {

constexpr long kOutputRate = 22050;

} // namespace

Mpg123FrameBackend::~Mpg123FrameBackend()
{
    if (handle_ != nullptr) {
        mpg123_close(handle_);
        mpg123_delete(handle_);
    }
}

HRESULT Mpg123FrameBackend::Setup()
{
    // Needed by libraries older than 1.27, harmless after.
    static std::once_flag initialised;
    std::call_once(initialised, [] { mpg123_init(); });

    int error = MPG123_OK;
    handle_ = mpg123_new(nullptr, &error);
    if (handle_ == nullptr) {
        return error == MPG123_OUT_OF_MEM ? E_OUTOFMEMORY : E_FAIL;
    }
    // Gapless decoding would trim the encoder delay from the first frames and
    // break the one-frame-in, 1152-bytes-out rule.
    if (mpg123_param(handle_, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_NO_READAHEAD | MPG123_FORCE_MONO, 0) !=
            MPG123_OK ||
        mpg123_param(handle_, MPG123_REMOVE_FLAGS, MPG123_GAPLESS, 0) != MPG123_OK ||
        mpg123_format_none(handle_) != MPG123_OK ||
        mpg123_format(handle_, kOutputRate, MPG123_MONO, MPG123_ENC_SIGNED_16) != MPG123_OK ||
        mpg123_open_feed(handle_) != MPG123_OK) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT Mpg123FrameBackend::ProcessInput(Mp3Buffer& input)
{
    // mpg123 copies what it is fed, so it never holds the buffer.
    return mpg123_feed(handle_, input.data, input.length) == MPG123_OK ? S_OK : E_FAIL;
}

HRESULT Mpg123FrameBackend::ProcessOutput(Mp3Buffer& output, bool* incomplete)
{
    *incomplete = false;
    for (;;) {
        std::size_t produced = 0;
        const int result =
            mpg123_read(handle_, output.data + output.length, output.maxLength - output.length, &produced);
        output.length += std::uint32_t(produced);
        switch (result) {
        case MPG123_NEW_FORMAT:
            continue; // only the one format is allowed, so nothing to change
        case MPG123_OK:
            if (output.length < output.maxLength) {
                continue;
            }
            *incomplete = true;
            return S_OK;
        case MPG123_NEED_MORE:
        case MPG123_DONE:
            return S_OK;
        default:
            return E_FAIL;
        }
    }
}

void Mpg123FrameBackend::Flush()
{
    mpg123_close(handle_);
    mpg123_open_feed(handle_);
}

} // namespace talvo
