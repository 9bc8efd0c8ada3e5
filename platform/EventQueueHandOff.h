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

// The same ordering for hand-offs made by Qt itself (a queued signal, an
// invoked method, a task of a thread pool), told to ThreadSanitizer as it
// happens: the sending thread calls HandOffToAnotherThread() just before it
// posts, the receiving thread TakeOverFromAnotherThread() first thing where
// the post arrives, and everything before the one comes before everything
// after the other.  In any other build both do nothing.
void HandOffToAnotherThread();
void TakeOverFromAnotherThread();

// A signal emitted (or a call posted) to a receiver on another thread: the
// hand-off, with what Qt builds for the post (the copies of the arguments,
// the event) left out of the record as PostThroughEventQueue does.  The
// receiving slot calls TakeOverFromAnotherThread() first.
void HandOffThroughEventQueue(const std::function<void()>& post);

} // namespace talvo
