#include "platform/InstanceChannel.h"
#include "platform/InstanceMessage.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QtEndian>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace talvo {
namespace {

bool peerIsSameUser(qintptr descriptor)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (getsockopt(static_cast<int>(descriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
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

} // namespace

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

InstanceServer::~InstanceServer() = default;

bool InstanceServer::Listen(const QString& windowClass, Handler handler)
{
    const QString path = InstanceSocketPath(windowClass);
    makePrivateFolderFor(path);

    if (InstanceClient().Connect(windowClass, 500))
        return false;
    // Nobody answers on it: whatever is there was left by a process that died.
    QLocalServer::removeServer(path);

    handler_ = std::move(handler);
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    connect(server_, &QLocalServer::newConnection, this, &InstanceServer::acceptConnection);
    return server_->listen(path);
}

void InstanceServer::acceptConnection()
{
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        if (!peerIsSameUser(socket->socketDescriptor())) {
            socket->abort();
            continue;
        }
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
        readRequest(socket);
    }
}

void InstanceServer::readRequest(QLocalSocket* socket)
{
    const DecodedInstanceRequest request =
        DecodeInstanceRequest(socket->peek(kInstanceHeaderBytes + kMaxPayload));
    if (request.status == DecodedInstanceRequest::Malformed) {
        socket->abort();
        return;
    }
    if (request.status == DecodedInstanceRequest::Incomplete)
        return;
    socket->read(request.consumed);
    std::int64_t result = handler_ ? handler_(request.kind, request.dwData, request.data) : 0;
    QByteArray answer(kInstanceAnswerBytes, Qt::Uninitialized);
    qToLittleEndian(kInstanceMagic, answer.data());
    qToLittleEndian(result, answer.data() + 4);
    socket->write(answer);
    socket->flush();
}

bool InstanceClient::Connect(const QString& windowClass, int timeoutMs)
{
    delete socket_;
    socket_ = new QLocalSocket;
    socket_->connectToServer(InstanceSocketPath(windowClass));
    return socket_->waitForConnected(timeoutMs);
}

std::optional<std::int64_t> InstanceClient::Send(InstanceRequest kind, std::uint32_t dwData,
                                                 const QByteArray& data, int timeoutMs)
{
    if (!socket_ || socket_->state() != QLocalSocket::ConnectedState)
        return std::nullopt;
    socket_->write(EncodeInstanceRequest(kind, dwData, data));
    if (!socket_->waitForBytesWritten(timeoutMs))
        return std::nullopt;
    while (socket_->bytesAvailable() < kInstanceAnswerBytes) {
        if (!socket_->waitForReadyRead(timeoutMs))
            return std::nullopt;
    }
    QByteArray answer = socket_->read(kInstanceAnswerBytes);
    if (qFromLittleEndian<std::uint32_t>(answer.constData()) != kInstanceMagic)
        return std::nullopt;
    return qFromLittleEndian<std::int64_t>(answer.constData() + 4);
}

InstanceClient::~InstanceClient()
{
    delete socket_;
}

} // namespace talvo
