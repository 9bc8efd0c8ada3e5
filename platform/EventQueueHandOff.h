#pragma once
// Handing what one thread built to another through Qt's event queue.  Qt
// orders a post before its delivery with locks that ThreadSanitizer cannot see
// (futexes inside QtCore, which is not instrumented), so the receiving
// thread's first reads of the posted data would be reported as races although
// the queue orders them.  What `post` builds and posts is left out of
// ThreadSanitizer's record of this thread's accesses; in any other build this
// is a plain call.  Use it for the post itself, never around work that other
// threads share without the queue.
#include <QObject>

#include <functional>
#include <utility>

class QThread;

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

// Runs `call` on the thread of `receiver` through its event queue, as a
// hand-off both ways round: the call takes over before it starts.
template <typename Call>
void PostToThreadOf(QObject* receiver, Call call, Qt::ConnectionType type = Qt::QueuedConnection)
{
    HandOffThroughEventQueue([&] {
        QMetaObject::invokeMethod(
            receiver,
            [call = std::move(call)]() mutable {
                TakeOverFromAnotherThread();
                call();
            },
            type);
    });
}

// `worker`, living on `thread`, is deleted there as the thread ends, ordered
// after a HandOffToAnotherThread() made before the thread is told to quit and
// before a TakeOverFromAnotherThread() made after waiting for it; QThread
// orders its end through locks ThreadSanitizer cannot see.
void DeleteAsThreadEnds(QThread& thread, QObject* worker);

} // namespace talvo
