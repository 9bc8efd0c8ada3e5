#pragma once
// libmpg123 in feed mode as CMp3's decoder.  MPG123_NO_READAHEAD makes it
// decode a frame as soon as the frame is fed, instead of waiting for the next
// frame's header, so every 104-byte frame gives its 576 samples at once.
#include "playback/Mp3FrameBackend.h"

struct mpg123_handle_struct;

namespace talvo {

class Mpg123FrameBackend final : public Mp3FrameBackend {
public:
    Mpg123FrameBackend() = default;
    ~Mpg123FrameBackend() override;
    Mpg123FrameBackend(const Mpg123FrameBackend&) = delete;
    Mpg123FrameBackend& operator=(const Mpg123FrameBackend&) = delete;

    HRESULT Setup() override;
    HRESULT ProcessInput(Mp3Buffer& input) override;
    HRESULT ProcessOutput(Mp3Buffer& output, bool* incomplete) override;
    void Flush() override;

private:
    mpg123_handle_struct* handle_ = nullptr;
};

} // namespace talvo
