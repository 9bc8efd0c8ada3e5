#pragma once
// Handing what one thread built to another through Qt's event queue.  Qt
// orders a post before its delivery with locks that ThreadSanitizer cannot see
// (futexes inside QtCore, which is not instrumented), so the receiving
// thread's first reads of the posted data would be reported as races although
// the queue orders them.  What `post` builds and posts is left out of
// ThreadSanitizer's record of this thread's accesses; in any other build this
// is a plain call.  Use it for the post itself, never around work that other
// threads share without the queue.
#include <functional>

namespace talvo {

void PostThroughEventQueue(const std::function<void()>& post);

} // namespace talvo
