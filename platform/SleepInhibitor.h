#pragma once
// Holding off system sleep while audio plays, so the machine does not suspend
// mid-chapter.  On Linux it is a logind "sleep" inhibitor lock
// (org.freedesktop.login1.Manager.Inhibit on the system bus, mode "block"):
// the lock is the file descriptor logind hands back, held open.
//
// Contract: Hold and Release are called on the user-interface thread and never
// wait for the bus: the request goes out at once and the lock is taken when
// logind answers; a lock that arrives after Release (or after a newer Hold) is
// closed at once.  Without a system bus or logind nothing is held and nothing
// else changes.
#include <memory>

namespace talvo {

class SleepInhibitor {
public:
    virtual ~SleepInhibitor() = default;
    virtual void Hold() = 0;
    virtual void Release() = 0;
};

std::unique_ptr<SleepInhibitor> CreateLogindSleepInhibitor();

} // namespace talvo
