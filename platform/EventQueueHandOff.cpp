#include "platform/EventQueueHandOff.h"

// ThreadSanitizer's runtime defines these (each ignores reads and writes
// alike); elsewhere they stay null.
extern "C" {
void AnnotateIgnoreWritesBegin(const char* file, int line) __attribute__((weak));
void AnnotateIgnoreWritesEnd(const char* file, int line) __attribute__((weak));
}

namespace talvo {

void PostThroughEventQueue(const std::function<void()>& post)
{
    if (AnnotateIgnoreWritesBegin)
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    post();
    if (AnnotateIgnoreWritesEnd)
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
}

} // namespace talvo
