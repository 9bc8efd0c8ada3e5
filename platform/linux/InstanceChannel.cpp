#include "platform/InstanceChannel.h"
#include "platform/InstanceMessage.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>
#include <QSocketNotifier>
#include <QtEndian>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

// Plain Unix-domain sockets watched by the event loop: the player needs
// nothing more, and a socket library would cost every start its loading.
namespace talvo {
namespace {

// What one read takes from a connection; a whole request never needs more
// than two of them in the buffer.
constexpr qsizetype kReadChunk = 64 * 1024;

bool peerIsSameUser(int descriptor)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return false;
    return credentials.uid == getuid();
}

// The runtime folder is private to the user: nobody else may place a socket
// or a lock there.
QString makePrivateFolderFor(const QString& path)
{
    const QString folder = QFileInfo(path).absolutePath();
    QDir().mkpath(folder);
    ::chmod(QFile::encodeName(folder).constData(), 0700);
    return folder;
}

// False when the path does not fit a socket address.
bool socketAddressFor(const QString& path, sockaddr_un& address)
{
    const QByteArray bytes = QFile::encodeName(path);
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (bytes.isEmpty() || bytes.size() >= qsizetype(sizeof address.sun_path) || bytes.contains('\0'))
        return false;
    std::memcpy(address.sun_path, bytes.constData(), std::size_t(bytes.size()));
    return true;
}

// Waits until descriptor is ready for events or the deadline passes.
bool waitFor(int descriptor, short events, const QElapsedTimer& clock, int timeoutMs)
{
    for (;;) {
        const qint64 left = timeoutMs - clock.elapsed();
        if (left <= 0)
            return false;
        pollfd watched{descriptor, events, 0};
        const int ready = ::poll(&watched, 1, int(left));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

} // namespace

// One accepted peer: its socket, its watcher and what it has sent so far.
class InstanceServer::Connection : public QObject {
public:
    Connection(int descriptor, QObject* parent)
        : QObject(parent), descriptor(descriptor), notifier(descriptor, QSocketNotifier::Read, this)
    {
    }
    ~Connection() override { ::close(descriptor); }

    // Ends the connection; the object goes once the event loop is back.
    void Drop()
    {
        notifier.setEnabled(false);
        deleteLater();
    }

    const int descriptor;
    QSocketNotifier notifier;
    QByteArray received;
};

InstanceClaim::~InstanceClaim()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool InstanceClaim::TryClaim(const QString& windowClass)
{
    if (descriptor_ >= 0)
        return true;
    const QString socketPath = InstanceSocketPath(windowClass);
    makePrivateFolderFor(socketPath);
    const QByteArray lockPath = QFile::encodeName(socketPath + QStringLiteral(".lock"));
    const int descriptor = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return false;
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        ::close(descriptor);
        return false;
    }
    descriptor_ = descriptor;
    return true;
}

QString InstanceSocketPath(const QString& windowClass)
{
    QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    QString folder = runtime.isEmpty() ? QDir::tempPath() + QStringLiteral("/talvoplayer-%1").arg(getuid())
                                       : runtime + QStringLiteral("/talvoplayer");
    return folder + QLatin1Char('/') + windowClass;
}

InstanceServer::InstanceServer(QObject* parent) : QObject(parent)
{
}

InstanceServer::~InstanceServer()
{
    if (listening_ >= 0)
        ::close(listening_);
}

bool InstanceServer::Listen(const QString& windowClass, Handler handler)
{
    const QString path = InstanceSocketPath(windowClass);
    makePrivateFolderFor(path);
    sockaddr_un address;
    if (listening_ >= 0 || !socketAddressFor(path, address))
        return false;

    if (InstanceClient().Connect(windowClass, 500))
        return false;
    // Nobody answers on it: whatever is there was left by a process that died.
    ::unlink(address.sun_path);

    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return false;
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::chmod(address.sun_path, 0600) != 0 || ::listen(descriptor, SOMAXCONN) != 0) {
        ::close(descriptor);
        return false;
    }
    listening_ = descriptor;
    handler_ = std::move(handler);
    notifier_ = new QSocketNotifier(listening_, QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &InstanceServer::acceptConnections);
    return true;
}

void InstanceServer::acceptConnections()
{
    for (;;) {
        const int descriptor = ::accept4(listening_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (descriptor < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            return; // EAGAIN: all taken; anything else: try again on the next notice
        }
        if (!peerIsSameUser(descriptor)) {
            ::close(descriptor);
            continue;
        }
        auto* connection = new Connection(descriptor, this);
        connect(&connection->notifier, &QSocketNotifier::activated, this,
                [this, connection] { serve(connection); });
        serve(connection);
    }
}

// Reads what the peer has sent and answers each whole request in it.  The
// handler may run an event loop of its own (a message box), so the
// connection is not read again until it returns, and may be gone after it.
void InstanceServer::serve(Connection* connection)
{
    connection->notifier.setEnabled(false);
    QPointer<Connection> alive(connection);
    for (;;) {
        const qsizetype before = connection->received.size();
        connection->received.resize(before + kReadChunk);
        const ssize_t got =
            ::recv(connection->descriptor, connection->received.data() + before, std::size_t(kReadChunk), 0);
        connection->received.resize(before + std::max<ssize_t>(got, 0));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        if (got <= 0) { // the peer is done, or the connection broke
            connection->Drop();
            return;
        }
        for (;;) {
            const DecodedInstanceRequest request = DecodeInstanceRequest(connection->received);
            if (request.status == DecodedInstanceRequest::Malformed) {
                connection->Drop();
                return;
            }
            if (request.status == DecodedInstanceRequest::Incomplete)
                break;
            connection->received.remove(0, request.consumed);
            const std::int64_t result = handler_ ? handler_(request.kind, request.dwData, request.data) : 0;
            if (!alive)
                return;
            char answer[kInstanceAnswerBytes];
            qToLittleEndian(kInstanceMagic, answer);
            qToLittleEndian(result, answer + 4);
            // A peer that does not read its answers is not worth waiting for.
            if (::send(connection->descriptor, answer, sizeof answer, MSG_NOSIGNAL | MSG_DONTWAIT) !=
                ssize_t(sizeof answer)) {
                connection->Drop();
                return;
            }
        }
    }
    connection->notifier.setEnabled(true);
}

bool InstanceClient::Connect(const QString& windowClass, int timeoutMs)
{
    close();
    sockaddr_un address;
    if (!socketAddressFor(InstanceSocketPath(windowClass), address))
        return false;
    descriptor_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor_ < 0)
        return false;
    // A player whose backlog is full is waited for, as long as the caller allows.
    const int limitMs = std::max(timeoutMs, 1);
    timeval limit{limitMs / 1000, (limitMs % 1000) * 1000};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    int connected;
    do
        connected = ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    while (connected != 0 && errno == EINTR);
    if (connected != 0 || ::fcntl(descriptor_, F_SETFL, O_NONBLOCK) != 0) {
        close();
        return false;
    }
    return true;
}

std::optional<std::int64_t> InstanceClient::Send(InstanceRequest kind, std::uint32_t dwData,
                                                 const QByteArray& data, int timeoutMs)
{
    if (descriptor_ < 0)
        return std::nullopt;
    const QByteArray request = EncodeInstanceRequest(kind, dwData, data);
    QElapsedTimer clock;
    clock.start();
    for (qsizetype sent = 0; sent < request.size();) {
        const ssize_t wrote =
            ::send(descriptor_, request.constData() + sent, std::size_t(request.size() - sent), MSG_NOSIGNAL);
        if (wrote > 0)
            sent += wrote;
        else if (wrote < 0 && errno != EINTR &&
                 !((errno == EAGAIN || errno == EWOULDBLOCK) &&
                   waitFor(descriptor_, POLLOUT, clock, timeoutMs)))
            return std::nullopt;
    }
    clock.restart();
    char answer[kInstanceAnswerBytes];
    for (qsizetype got = 0; got < kInstanceAnswerBytes;) {
        const ssize_t read = ::recv(descriptor_, answer + got, std::size_t(kInstanceAnswerBytes - got), 0);
        if (read > 0)
            got += read;
        else if (read == 0 || (errno != EINTR && !((errno == EAGAIN || errno == EWOULDBLOCK) &&
                                                   waitFor(descriptor_, POLLIN, clock, timeoutMs))))
            return std::nullopt;
    }
    if (qFromLittleEndian<std::uint32_t>(answer) != kInstanceMagic)
        return std::nullopt;
    return qFromLittleEndian<std::int64_t>(answer + 4);
}

InstanceClient::~InstanceClient()
{
    close();
}

void InstanceClient::close()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
}

} // namespace talvo
