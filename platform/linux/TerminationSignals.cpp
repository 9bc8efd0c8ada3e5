#include "platform/TerminationSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace talvo {
namespace {

// The handler may only write to a descriptor; the notifier reads it on the UI thread.
int signalPipe[2] = {-1, -1};

void notify(int)
{
    char byte = 1;
    [[maybe_unused]] ssize_t written = ::write(signalPipe[0], &byte, 1);
}

} // namespace

void OnTerminationSignal(std::function<void()> handler)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [handler = std::move(handler)] {
        char byte;
        [[maybe_unused]] ssize_t got = ::read(signalPipe[1], &byte, 1);
        handler();
    });
    struct sigaction action = {};
    action.sa_handler = notify;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

} // namespace talvo
