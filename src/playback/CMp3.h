#pragma once
// The MP3 frame decoder of type-4 programs: one 104-byte MPEG-2 Layer III
// frame (22050 Hz mono) in, exactly 1152 bytes of 16-bit PCM (576 samples)
// out.  A frame that decodes to nothing plays as 1152 bytes of silence.
//
// Create, DecodeFrame and destruction are used on one thread (the player's
// user-interface thread).  Every failure leaves its HRESULT as that thread's
// last error (playback/LastError.h) and answers nullptr or false.  Nothing is
// allocated per frame: the input buffers live in the object and the output
// wraps the caller's memory.
#include "playback/LastError.h"
#include "playback/Mp3FrameBackend.h"

#include <array>
#include <cstdint>
#include <memory>

namespace talvo {

class CMp3 {
public:
    static constexpr std::uint32_t kFrameBytes = 104;
    static constexpr std::uint32_t kPcmBytes = 1152;
    // Input buffers rotate so that a buffer the decoder still holds is never
    // overwritten; meeting one anyway is an error, not a wait.
    static constexpr std::uint32_t kInputBuffers = 8;

    // The libmpg123 decoder; nullptr on failure (last error: its code,
    // E_OUTOFMEMORY when memory ran out).
    static std::unique_ptr<CMp3> Create();
    // Any decoder; Setup is called here.
    static std::unique_ptr<CMp3> Create(std::unique_ptr<Mp3FrameBackend> decoder);

    // Destroy: releases the decoder.
    ~CMp3();
    CMp3(const CMp3&) = delete;
    CMp3& operator=(const CMp3&) = delete;

    // frame: kFrameBytes bytes; pcm: room for kPcmBytes.  E_POINTER for a
    // missing pointer, E_UNEXPECTED when the next input buffer is still held
    // or the frame decodes to neither 0 nor kPcmBytes bytes, or the decoder's
    // own code.
    bool DecodeFrame(const std::uint8_t* frame, std::uint8_t* pcm);

private:
    explicit CMp3(std::unique_ptr<Mp3FrameBackend> decoder);
    bool Fail(HRESULT hr);
    // Checks what ProcessOutput left; false (with the last error set) ends the call.
    bool OutputAccepted(HRESULT hr, const Mp3Buffer& output);

    // "CMp3" as a little-endian 32-bit value; tells a live object from a stale pointer.
    static constexpr std::uint32_t kSignature = 0x33704D43;

    struct InputBuffer {
        std::array<std::uint8_t, kFrameBytes> bytes{};
        Mp3Buffer buffer;
    };

    std::uint32_t signature_ = kSignature;
    std::unique_ptr<Mp3FrameBackend> decoder_;
    std::array<InputBuffer, kInputBuffers> inputs_;
    std::uint32_t nextInput_ = 0;
    std::array<std::uint8_t, kPcmBytes> discard_{}; // output past the first 1152 bytes is thrown away
};

} // namespace talvo
