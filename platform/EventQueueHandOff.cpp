#include "platform/EventQueueHandOff.h"

#include <QThread>

// ThreadSanitizer's runtime defines these (each ignores reads and writes
// alike); elsewhere they stay null.
extern "C" {
void AnnotateIgnoreWritesBegin(const char* file, int line) __attribute__((weak));
void AnnotateIgnoreWritesEnd(const char* file, int line) __attribute__((weak));
void __tsan_release(void* address) __attribute__((weak));
void __tsan_acquire(void* address) __attribute__((weak));
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

namespace {
// One token for every hand-off: a receiver is ordered after every sender so
// far, which orders more than the queue does, never less.
char handOffToken;
} // namespace

void HandOffToAnotherThread()
{
    if (__tsan_release)
        __tsan_release(&handOffToken);
}

void TakeOverFromAnotherThread()
{
    if (__tsan_acquire)
        __tsan_acquire(&handOffToken);
}

void HandOffThroughEventQueue(const std::function<void()>& post)
{
    HandOffToAnotherThread();
    PostThroughEventQueue(post);
}

void DeleteAsThreadEnds(QThread& thread, QObject* worker)
{
    QObject::connect(
        &thread, &QThread::finished, &thread, [] { TakeOverFromAnotherThread(); }, Qt::DirectConnection);
    QObject::connect(&thread, &QThread::finished, worker, &QObject::deleteLater);
    QObject::connect(
        worker, &QObject::destroyed, &thread, [] { HandOffToAnotherThread(); }, Qt::DirectConnection);
}

} // namespace talvo
