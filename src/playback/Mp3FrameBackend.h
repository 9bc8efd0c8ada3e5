#pragma once
// The decoder that stands behind CMp3, in the shape of a streaming media
// object: buffers with a reference count go in and come out, so that CMp3 can
// tell when the decoder still holds one.  The libmpg123 adapter is the real
// one; tests put a fake here to produce odd lengths and held buffers.
#include "playback/LastError.h"

#include <cstdint>

namespace talvo {

struct Mp3Buffer {
    std::uint8_t* data = nullptr;
    std::uint32_t maxLength = 0;
    std::uint32_t length = 0;
    // 1 while only CMp3 holds it; a decoder that keeps a buffer past the call
    // raises it and lowers it again when done.
    std::int32_t refCount = 1;
};

class Mp3FrameBackend {
public:
    virtual ~Mp3FrameBackend() = default;

    // Sets up input (MPEG-2 Layer III, 22050 Hz mono, 104-byte frames) and
    // output (16-bit mono PCM at 22050 Hz) and takes what streaming needs.
    virtual HRESULT Setup() = 0;
    // Takes one frame; the decoder may keep a reference to the buffer.
    virtual HRESULT ProcessInput(Mp3Buffer& input) = 0;
    // Appends decoded PCM to output (up to maxLength); *incomplete is set when
    // more output is waiting than fitted.
    virtual HRESULT ProcessOutput(Mp3Buffer& output, bool* incomplete) = 0;
    // Forgets every frame taken and every output pending.
    virtual void Flush() = 0;
};

} // namespace talvo
