#pragma once
// Keeping the device from idling while audio plays: the activity keeper tells
// the session every 5000 ms that the user is active, and the idle timer can be
// reset at any moment.  On Linux both go to org.freedesktop.ScreenSaver's
// SimulateUserActivity on the session bus; a missing service is ignored.
#include <memory>

namespace talvo {

class KeepAwake {
public:
    virtual ~KeepAwake() = default;
    // Starts the keeper thread; Stop ends it and waits for it.
    virtual void Start() = 0;
    virtual void Stop() = 0;
};

inline constexpr int kActivityIntervalMs = 5000;
// Resets closer together than this reach the session as one.
inline constexpr int kIdleResetIntervalMs = 5000;

std::unique_ptr<KeepAwake> CreateKeepAwake();

// Resets the system idle timer, without waiting for an answer.  Cheap to call
// after every buffer: calls within kIdleResetIntervalMs of the last one that
// went out are dropped.
void ResetSystemIdleTimer();

} // namespace talvo
