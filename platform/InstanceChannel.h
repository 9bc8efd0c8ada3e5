#pragma once
// Finding the running player and handing it requests: the running player
// listens on a local socket named after its window class in the user's
// runtime folder (folder 0700, socket 0600, the peer's uid checked); another
// process connects, sends one request and waits for the answer, the way a
// synchronous send to another process's window waits.
//
// Wire format, little-endian: request = magic "TPWM", kind (u32), dwData (u32),
// cbData (u32), cbData bytes; answer = magic, result (i64).  A request that is
// malformed, too large or from another user is dropped and the connection
// closed without an answer.
#include <QByteArray>
#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

class QSocketNotifier;

namespace talvo {

enum class InstanceRequest : std::uint32_t {
    CopyData = 1,     // WM_COPYDATA with dwData and the bytes
    BringToFront = 2, // make the window the foreground window
};

// The socket path for a window class: $XDG_RUNTIME_DIR/talvoplayer/<class>,
// or a private folder under the temporary folder when there is no runtime folder.
QString InstanceSocketPath(const QString& windowClass);

// The right to be the running player for a window class: a lock on a file
// beside the socket, held for the life of the process and released by the
// kernel however the process ends.  Of any number of processes started at
// once exactly one gets it; every other one hands its request to that one.
class InstanceClaim {
public:
    InstanceClaim() = default;
    InstanceClaim(const InstanceClaim&) = delete;
    InstanceClaim& operator=(const InstanceClaim&) = delete;
    ~InstanceClaim();

    // True when this process now holds the claim (or already did).
    bool TryClaim(const QString& windowClass);

private:
    int descriptor_ = -1;
};

// The running player's end.  Listen only after winning the InstanceClaim.
class InstanceServer : public QObject {
    Q_OBJECT
public:
    using Handler =
        std::function<std::int64_t(InstanceRequest kind, std::uint32_t dwData, const QByteArray& data)>;

    explicit InstanceServer(QObject* parent = nullptr);
    ~InstanceServer() override;

    // Starts listening; false when another live player already listens there.
    // A socket left behind by a dead process is replaced (safe because the
    // caller holds the claim: no live player can be starting up beside it).
    bool Listen(const QString& windowClass, Handler handler);

    // Largest payload accepted: a path of any length the file system allows, with room to spare.
    static constexpr std::uint32_t kMaxPayload = 64 * 1024;

private:
    class Connection;
    void acceptConnections();
    void serve(Connection* connection);

    int listening_ = -1;
    QSocketNotifier* notifier_ = nullptr;
    Handler handler_;
};

// The other process's end: is a player running, and hand it a request.
class InstanceClient {
public:
    // Connects to the running player; false when none runs.
    bool Connect(const QString& windowClass, int timeoutMs = 2000);
    // Sends a request and waits for the answer; none when the player did not answer.
    std::optional<std::int64_t> Send(InstanceRequest kind, std::uint32_t dwData, const QByteArray& data,
                                     int timeoutMs = 30000);
    InstanceClient() = default;
    InstanceClient(const InstanceClient&) = delete;
    InstanceClient& operator=(const InstanceClient&) = delete;
    ~InstanceClient();

private:
    void close();

    int descriptor_ = -1;
};

} // namespace talvo
