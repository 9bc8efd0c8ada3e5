// Built into every executable of the ThreadSanitizer build, and only there.
//
// QProcess starts its children with clone(CLONE_VM | CLONE_VFORK): the child
// runs in the parent's memory until it execs.  ThreadSanitizer's clone
// interceptor then does its after-fork bookkeeping in that shared memory, and
// what it notes for a child forked from a threaded process (ignore every
// synchronisation from now on) stays with the parent thread that started the
// child.  From then on every mutex that thread takes is invisible to the
// sanitizer, and whatever it hands to another thread under a lock is reported
// as a race.  Defined in the executable, this clone comes before the
// sanitizer's and turns such a start into a real fork, which the sanitizer
// handles in the child's own memory; every other clone is passed on.
#include <dlfcn.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace {

constexpr int kSharedMemoryStart = CLONE_VM | CLONE_VFORK;
constexpr int kExitSignalMask = 0xff;

// Only a process start like vfork's, with at most a pidfd asked for, is
// turned into a fork: a thread or anything else clone makes keeps its meaning.
bool IsSharedMemoryProcessStart(int flags)
{
    return (flags & kSharedMemoryStart) == kSharedMemoryStart &&
           (flags & ~(kSharedMemoryStart | CLONE_PIDFD | kExitSignalMask)) == 0 &&
           (flags & kExitSignalMask) == SIGCHLD;
}

using CloneFunction = int (*)(int (*)(void*), void*, int, void*, ...);

CloneFunction NextClone()
{
    static const auto next = reinterpret_cast<CloneFunction>(dlsym(RTLD_NEXT, "clone"));
    return next;
}

// The caller of a CLONE_PIDFD start reads the child's pidfd where the parent
// thread id would go; pidfd_open gives the same (close-on-exec) descriptor.
int ForkAndRun(int (*fn)(void*), void* arg, int flags, int* pidfd)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(fn(arg));
    if (pid < 0 || !(flags & CLONE_PIDFD))
        return pid;
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (fd < 0) {
        const int error = errno;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        errno = error;
        return -1;
    }
    *pidfd = fd;
    return pid;
}

} // namespace

extern "C" int clone(int (*fn)(void*), void* stack, int flags, void* arg, ...)
{
    va_list rest;
    va_start(rest, arg);
    int* parentTid = va_arg(rest, int*);
    void* tls = va_arg(rest, void*);
    int* childTid = va_arg(rest, int*);
    va_end(rest);
    if (fn && IsSharedMemoryProcessStart(flags))
        return ForkAndRun(fn, arg, flags, parentTid);
    return NextClone()(fn, stack, flags, arg, parentTid, tls, childTid);
}
