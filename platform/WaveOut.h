#pragma once
// Wave output: a device that plays caller-owned buffers of PCM in the order
// they were written, and hands each one back when it has been played, with the
// operations, header flags and result codes of the handheld platform's wave
// API (open, prepare, write, unprepare, reset, close, volume).
//
// Contract:
// - Open, PrepareHeader, Write, UnprepareHeader, Reset, Close and SetVolume are
//   called by one owner thread (the player's user-interface thread), never at
//   the same time from two threads.
// - Buffers belong to the caller.  The device only reads lpData while the
//   header is queued (WHDR_INQUEUE), and writes nothing but dwFlags; the header
//   and its data must stay valid until the header comes back done.
// - Buffers play in the order of Write.  The done callback runs on the
//   device's own thread, once per buffer, in queue order, after the device has
//   set WHDR_DONE and cleared WHDR_INQUEUE.  The player turns it into a posted
//   MM_WOM_DONE message; the callback must not call back into the device
//   (Reset and Close wait for the device thread, so that would deadlock).
// - Reset stops at once and hands back every queued buffer as done; when it
//   returns, every callback for those buffers has already run, so a caller
//   that now discards its pending notices discards all of them.
// - Close fails with WAVERR_STILLPLAYING while buffers are queued (call Reset
//   first); after Close no callback runs any more.
// - The frame size comes from nChannels x wBitsPerSample / 8 alone.  The
//   player opens the device with nAvgBytesPerSec halved and nBlockAlign fixed
//   at 2 whatever the channel count; those two fields are not trusted.
// - SetVolume takes the left level in the low word and the right level in the
//   high word (0..0xFFFF each; mono uses the left level).  It is applied in
//   software to this stream only.  While the device is closed it sets the
//   level the next Open starts with.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace talvo {

using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using MMRESULT = std::uint32_t;

inline constexpr MMRESULT MMSYSERR_NOERROR = 0;
inline constexpr MMRESULT MMSYSERR_ERROR = 1;
inline constexpr MMRESULT MMSYSERR_BADDEVICEID = 2;
inline constexpr MMRESULT MMSYSERR_ALLOCATED = 4;
inline constexpr MMRESULT MMSYSERR_INVALHANDLE = 5;
inline constexpr MMRESULT MMSYSERR_NODRIVER = 6;
inline constexpr MMRESULT MMSYSERR_NOMEM = 7;
inline constexpr MMRESULT MMSYSERR_INVALPARAM = 11;
inline constexpr MMRESULT WAVERR_BADFORMAT = 32;
inline constexpr MMRESULT WAVERR_STILLPLAYING = 33;
inline constexpr MMRESULT WAVERR_UNPREPARED = 34;

inline constexpr std::uint16_t WAVE_FORMAT_PCM = 1;

// The format record as the player builds it (18 bytes on the original device).
struct WAVEFORMATEX {
    std::uint16_t wFormatTag;
    std::uint16_t nChannels;
    std::uint32_t nSamplesPerSec;
    std::uint32_t nAvgBytesPerSec; // not trusted, see the contract
    std::uint16_t nBlockAlign;     // not trusted, see the contract
    std::uint16_t wBitsPerSample;
    std::uint16_t cbSize;
};

inline constexpr DWORD WHDR_DONE = 0x01;
inline constexpr DWORD WHDR_PREPARED = 0x02;
inline constexpr DWORD WHDR_BEGINLOOP = 0x04;
inline constexpr DWORD WHDR_ENDLOOP = 0x08;
inline constexpr DWORD WHDR_INQUEUE = 0x10;

// One buffer.  A plain record owned by the caller, who may place it directly
// before its data; sizeof(WAVEHDR) is 48 on a 64-bit build (32 on the original
// 32-bit device), so size slot layouts with sizeof, not with 32.
struct WAVEHDR {
    char* lpData;
    DWORD dwBufferLength;  // bytes to play; a trailing partial frame is skipped
    DWORD dwBytesRecorded; // unused on output
    std::uintptr_t dwUser; // the caller's own value, never touched
    DWORD dwFlags;         // WHDR_* bits, maintained by the device
    DWORD dwLoops;         // loops are not supported; ignored
    WAVEHDR* lpNext;       // reserved for the device
    std::uintptr_t reserved;
};

class WaveOut {
public:
    // Runs on the device thread; see the contract above.
    using DoneCallback = std::function<void(WAVEHDR* header)>;

    virtual ~WaveOut() = default;

    // MMSYSERR_ALLOCATED when already open; WAVERR_BADFORMAT for anything
    // but PCM with 1..8 channels of 8 or 16 bits at 1000..384000 Hz; an
    // adapter's own code (MMSYSERR_BADDEVICEID, MMSYSERR_NODRIVER,
    // MMSYSERR_ERROR) when the device cannot be opened.
    virtual MMRESULT Open(const WAVEFORMATEX& format, DoneCallback done) = 0;
    virtual MMRESULT PrepareHeader(WAVEHDR* header, UINT headerSize) = 0;
    // Queues a prepared header (WAVERR_UNPREPARED otherwise).
    virtual MMRESULT Write(WAVEHDR* header, UINT headerSize) = 0;
    // WAVERR_STILLPLAYING while the header is queued.
    virtual MMRESULT UnprepareHeader(WAVEHDR* header, UINT headerSize) = 0;
    virtual MMRESULT Reset() = 0;
    virtual MMRESULT Close() = 0;
    virtual MMRESULT SetVolume(DWORD volume) = 0;
    virtual MMRESULT GetVolume(DWORD* volume) const = 0;
    virtual bool IsOpen() const = 0;
};

// Chooses and builds the output from a TALVOPLAYER_AUDIO value:
//   ""  or "alsa[:DEVICE]"     ALSA, DEVICE defaults to "default"
//   "null[:SPEED][,OPTION...]" simulated device paced at SPEED x real time
//                              (default 1; "max" does not pace)
//   "capture:FILE.wav[:SPEED][,OPTION...]"
//                              the null device, also writing everything it
//                              plays to a WAV file of the opened format
// OPTIONs, for tests of the player's refill path (null and capture only):
//   late=MS   every completion arrives MS milliseconds after its buffer ended
//   burst=N   completions are held back and delivered N at a time (the
//             last few go out together once nothing more is queued)
//   miss=N    the completion of every Nth buffer never arrives (Reset or
//             Close still returns that buffer)
// Returns nullptr, with a reason in *error, for a value it does not understand.
std::unique_ptr<WaveOut> CreateWaveOut(std::string_view choice, std::string* error = nullptr);

// Audio frame size for a format: channels x bits / 8.
inline constexpr std::uint32_t WaveFrameBytes(const WAVEFORMATEX& format)
{
    return std::uint32_t{format.nChannels} * format.wBitsPerSample / 8;
}

} // namespace talvo
