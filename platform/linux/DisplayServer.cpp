#include "platform/DisplayServer.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace talvo {
namespace {

// The X server's first TCP port; display N listens on this plus N.
constexpr int kX11BasePort = 6000;

class Socket {
public:
    explicit Socket(int fd) : fd_(fd) {}
    ~Socket()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

// abstract: a name in Linux's abstract socket namespace (the X server's
// preferred local socket), which starts with a NUL instead of a file path.
bool ConnectLocal(const QByteArray& path, bool abstract)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t offset = abstract ? 1 : 0;
    if (path.isEmpty() || std::size_t(path.size()) + offset >= sizeof(address.sun_path))
        return false;
    std::memcpy(address.sun_path + offset, path.constData(), std::size_t(path.size()));
    const socklen_t length = socklen_t(offsetof(sockaddr_un, sun_path) + offset + std::size_t(path.size()));
    Socket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return socket.fd() >= 0 && ::connect(socket.fd(), reinterpret_cast<sockaddr*>(&address), length) == 0;
}

bool ConnectWithin(const addrinfo& candidate, int timeoutMs)
{
    Socket socket(::socket(candidate.ai_family, candidate.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK,
                           candidate.ai_protocol));
    if (socket.fd() < 0)
        return false;
    if (::connect(socket.fd(), candidate.ai_addr, candidate.ai_addrlen) == 0)
        return true;
    if (errno != EINPROGRESS)
        return false;
    pollfd waiting{socket.fd(), POLLOUT, 0};
    if (::poll(&waiting, 1, timeoutMs) != 1)
        return false;
    int error = 0;
    socklen_t size = sizeof(error);
    return ::getsockopt(socket.fd(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

bool ConnectTcp(const QByteArray& host, int port)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.constData(), QByteArray::number(port).constData(), &hints, &found) != 0)
        return false;
    bool connected = false;
    for (addrinfo* candidate = found; candidate && !connected; candidate = candidate->ai_next)
        connected = ConnectWithin(*candidate, kDisplayConnectTimeoutMs);
    ::freeaddrinfo(found);
    return connected;
}

} // namespace

bool WaylandDisplayAnswers()
{
    const QByteArray name = qgetenv("WAYLAND_DISPLAY");
    if (name.isEmpty())
        return false;
    if (name.startsWith('/'))
        return ConnectLocal(name, false);
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && ConnectLocal(runtime + '/' + name, false);
}

bool X11DisplayAnswers()
{
    const QByteArray display = qgetenv("DISPLAY");
    const qsizetype colon = display.lastIndexOf(':');
    if (colon < 0)
        return false;
    const QByteArray host = display.left(colon);
    QByteArray number = display.mid(colon + 1);
    if (const qsizetype dot = number.indexOf('.'); dot >= 0)
        number.truncate(dot);
    bool isNumber = false;
    const int displayNumber = number.toInt(&isNumber);
    if (!isNumber || displayNumber < 0)
        return false;
    if (!host.isEmpty() && host != "unix")
        return ConnectTcp(host, kX11BasePort + displayNumber);
    const QByteArray socketPath = "/tmp/.X11-unix/X" + number;
    return ConnectLocal(socketPath, true) || ConnectLocal(socketPath, false);
}

} // namespace talvo
