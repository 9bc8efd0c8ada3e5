#pragma once
// What every threaded wave output shares: header bookkeeping, the queue,
// the device thread, software volume, Reset and Close, and the misbehaviour
// that the null device can simulate.  An adapter supplies only the device
// itself through the Device* hooks.
//
// Hook contract:
// - DeviceOpen runs on the owner thread inside Open, before the device thread
//   starts; DeviceClose runs on the owner thread inside Close, after the device
//   thread has ended.  Every other hook runs on the device thread only, so an
//   adapter needs no lock around its device handle.
// - DevicePlay takes frames already scaled by the volume and blocks for about
//   as long as the device needs to accept them.  It may return early when
//   StopRequested() becomes true (use WaitUntil for sleeps); it returns how many
//   frames it accepted.
// - DeviceDelayFrames is how many accepted frames have not been heard yet; a
//   buffer is reported done once all its frames have been heard, or once the
//   delay measured when its last frame was accepted has run out.
// - DeviceDrop throws away everything accepted and not yet heard (Reset).
#include "platform/WaveOut.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace talvo {

// Simulated faults of a device's completions; all zero means none.
struct WaveOutMisbehaviour {
    std::uint32_t lateMs = 0; // each completion arrives this long after its buffer was heard; playing goes on
    std::uint32_t burst =
        0; // completions held back and delivered this many at a time, or fewer once the queue runs dry
    std::uint32_t missEvery = 0; // every Nth completion never arrives
};

class QueuedWaveOut : public WaveOut {
public:
    QueuedWaveOut();
    ~QueuedWaveOut() override;

    MMRESULT Open(const WAVEFORMATEX& format, DoneCallback done) override;
    MMRESULT PrepareHeader(WAVEHDR* header, UINT headerSize) override;
    MMRESULT Write(WAVEHDR* header, UINT headerSize) override;
    MMRESULT UnprepareHeader(WAVEHDR* header, UINT headerSize) override;
    MMRESULT Reset() override;
    MMRESULT Close() override;
    MMRESULT SetVolume(DWORD volume) override;
    MMRESULT GetVolume(DWORD* volume) const override;
    bool IsOpen() const override;

    // Takes effect for completions that happen after the call.
    void SetMisbehaviour(const WaveOutMisbehaviour& misbehaviour);

protected:
    using Clock = std::chrono::steady_clock;

    virtual MMRESULT DeviceOpen(const WAVEFORMATEX& format) = 0;
    virtual std::uint32_t DeviceChunkFrames() const = 0; // largest piece handed to DevicePlay
    virtual std::uint32_t DevicePlay(const std::uint8_t* frames, std::uint32_t frameCount) = 0;
    virtual std::uint64_t DeviceDelayFrames() = 0;
    virtual void DeviceDrop() = 0;
    virtual void DeviceClose() = 0;

    // Resets and closes an open device; every adapter's destructor calls it,
    // while its Device* hooks still exist.
    void Shutdown();

    // Sleeps until the deadline or until Reset/Close asks the thread to stop;
    // false when woken early.
    bool WaitUntil(Clock::time_point deadline);
    bool StopRequested() const;
    const WAVEFORMATEX& Format() const { return format_; }

private:
    struct Finished {
        WAVEHDR* header;
        std::uint64_t endFrame; // position, in frames written, of the buffer's last frame
        // When the device's delay said the last frame would be heard.  Some
        // devices (the pulse plugin) keep reporting a small delay for ever once
        // nothing more is written, so this decides when the delay does not.
        Clock::time_point heardBy;
    };
    struct Heard {
        WAVEHDR* header;
        bool lost;             // its completion never arrives; only Reset returns it
        Clock::time_point due; // when its completion may go out (late)
    };

    void Run();
    void ApplyVolume(const std::uint8_t* in, std::uint32_t bytes, std::uint8_t* out, DWORD volume) const;
    // Moves buffers whose frames have all been heard to the delivery list.
    void CollectHeard(std::uint64_t heardFrames, std::vector<WAVEHDR*>& deliver);
    void ReturnAll(std::vector<WAVEHDR*>& deliver);
    void Deliver(std::vector<WAVEHDR*>& headers); // calls back without the lock, then clears
    void StopThread();

    mutable std::mutex mutex_;
    std::condition_variable wake_;      // device thread: work, reset or quit
    std::condition_variable resetDone_; // owner thread: the device thread finished a reset
    std::thread thread_;
    bool open_ = false;
    bool quit_ = false;
    bool resetRequested_ = false;
    WAVEFORMATEX format_{};
    std::uint32_t frameBytes_ = 0;
    DoneCallback done_;
    DWORD volume_ = 0xFFFFFFFF;
    WaveOutMisbehaviour misbehaviour_;

    std::deque<WAVEHDR*> queue_;   // written, not yet fully handed to the device
    std::uint32_t playOffset_ = 0; // bytes of queue_.front() already handed over
    std::deque<Finished> playing_; // handed over, not yet heard
    std::deque<Heard> heard_;      // heard, completion held back (burst) or lost (miss)
    std::uint64_t framesWritten_ = 0;
    std::uint64_t completions_ = 0;
    std::vector<std::uint8_t> scratch_;
};

} // namespace talvo
