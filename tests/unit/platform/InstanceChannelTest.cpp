#include "platform/InstanceChannel.h"
#include "platform/InstanceMessage.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QtEndian>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace talvo {
namespace {

// Each test gets its own runtime folder, so no real player is disturbed.
class InstanceChannelTest : public ::testing::Test {
protected:
    void SetUp() override { qputenv("XDG_RUNTIME_DIR", dir_.path().toUtf8()); }
    QTemporaryDir dir_;
    const QString windowClass_ = QStringLiteral("TalvoPlayerMainWnd");
};

// Runs a client on another thread while this thread serves the event loop.
template <typename Fn> auto runClient(Fn fn)
{
    std::optional<std::int64_t> answer;
    std::atomic<bool> done = false;
    std::thread client([&] {
        answer = fn();
        done = true;
    });
    while (!done)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    client.join();
    return answer;
}

TEST_F(InstanceChannelTest, HandsOverCopyDataAndReturnsTheAnswer)
{
    InstanceServer server;
    std::uint32_t seenData = 0;
    QByteArray seenBytes;
    ASSERT_TRUE(
        server.Listen(windowClass_, [&](InstanceRequest kind, std::uint32_t dwData, const QByteArray& bytes) {
            EXPECT_EQ(kind, InstanceRequest::CopyData);
            seenData = dwData;
            seenBytes = bytes;
            return std::int64_t{1};
        }));
    const QByteArray path(reinterpret_cast<const char*>(u"/home/a.zq"), 22);
    auto answer = runClient([&] {
        InstanceClient client;
        return client.Connect(windowClass_) ? client.Send(InstanceRequest::CopyData, 7482, path)
                                            : std::nullopt;
    });
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(*answer, 1);
    EXPECT_EQ(seenData, 7482u);
    EXPECT_EQ(seenBytes, path);
}

TEST_F(InstanceChannelTest, SecondServerIsRefusedWhileTheFirstLives)
{
    InstanceServer first;
    ASSERT_TRUE(first.Listen(windowClass_, nullptr));
    InstanceServer second;
    EXPECT_FALSE(second.Listen(windowClass_, nullptr));
}

TEST_F(InstanceChannelTest, ReplacesASocketLeftByADeadPlayer)
{
    const QString path = InstanceSocketPath(windowClass_);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile stale(path);
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
    InstanceServer server;
    EXPECT_TRUE(server.Listen(windowClass_, nullptr));
    EXPECT_FALSE(InstanceClient().Connect(QStringLiteral("NoSuchWindowClass"), 200));
}

TEST_F(InstanceChannelTest, DropsMalformedAndOversizedRequestsWithoutAnswer)
{
    InstanceServer server;
    int handled = 0;
    ASSERT_TRUE(server.Listen(windowClass_, [&](InstanceRequest, std::uint32_t, const QByteArray&) {
        ++handled;
        return std::int64_t{1};
    }));
    auto sendRaw = [&](QByteArray bytes) {
        return runClient([&]() -> std::optional<std::int64_t> {
            QLocalSocket socket;
            socket.connectToServer(InstanceSocketPath(windowClass_));
            if (!socket.waitForConnected(2000))
                return std::nullopt;
            socket.write(bytes);
            socket.waitForBytesWritten(2000);
            // The server closes the connection instead of answering.
            if (socket.waitForReadyRead(1000))
                return socket.bytesAvailable();
            return std::nullopt;
        });
    };
    EXPECT_FALSE(sendRaw(QByteArray("GARBAGEGARBAGE!!")).has_value());
    QByteArray huge(16, '\0');
    memcpy(huge.data(), "TPWM", 4);
    huge[4] = 1;
    huge[12] = '\xff';
    huge[13] = '\xff';
    huge[14] = '\xff';
    huge[15] = '\x7f';
    EXPECT_FALSE(sendRaw(huge).has_value());
    EXPECT_EQ(handled, 0);
}

// The server reads whatever the socket holds: a request cut in two with a
// pause between, and two requests in one write, each get their own answer,
// in order; the largest payload crosses more than one read.
TEST_F(InstanceChannelTest, RequestsInPiecesAndBackToBackAreEachAnsweredInOrder)
{
    InstanceServer server;
    std::vector<std::uint32_t> seen;
    ASSERT_TRUE(
        server.Listen(windowClass_, [&](InstanceRequest, std::uint32_t dwData, const QByteArray& bytes) {
            seen.push_back(dwData);
            return std::int64_t{bytes.size()};
        }));
    const QByteArray largest(InstanceServer::kMaxPayload, 'x');
    const QByteArray first = EncodeInstanceRequest(InstanceRequest::CopyData, 1, largest);
    const QByteArray second = EncodeInstanceRequest(InstanceRequest::CopyData, 2, "ab");
    const QByteArray third = EncodeInstanceRequest(InstanceRequest::BringToFront, 3, {});
    auto answers = runClient([&]() -> std::optional<std::int64_t> {
        QLocalSocket socket;
        socket.connectToServer(InstanceSocketPath(windowClass_));
        if (!socket.waitForConnected(2000))
            return std::nullopt;
        socket.write(first.left(10));
        socket.waitForBytesWritten(2000);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        socket.write(first.mid(10) + second + third);
        while (socket.bytesAvailable() < 3 * kInstanceAnswerBytes)
            if (!socket.waitForReadyRead(2000))
                return std::nullopt;
        std::int64_t sum = 0;
        for (int i = 0; i < 3; ++i) {
            const QByteArray answer = socket.read(kInstanceAnswerBytes);
            sum = sum * 1000000 + qFromLittleEndian<std::int64_t>(answer.constData() + 4);
        }
        return sum;
    });
    ASSERT_TRUE(answers.has_value());
    EXPECT_EQ(*answers, (std::int64_t{InstanceServer::kMaxPayload} * 1000000 + 2) * 1000000 + 0);
    EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 2, 3}));
}

// A request arrives in pieces: nothing is decided before its last byte, and
// what follows it is left for the next request.
TEST(InstanceMessage, DecodesOnlyWholeRequestsAndRefusesBadHeadersAtOnce)
{
    const QByteArray path(reinterpret_cast<const char*>(u"/a.zq"), 12);
    const QByteArray request = EncodeInstanceRequest(InstanceRequest::CopyData, 7482, path);
    for (qsizetype n = 0; n < request.size(); ++n)
        EXPECT_EQ(DecodeInstanceRequest(request.left(n)).status, DecodedInstanceRequest::Incomplete) << n;
    const DecodedInstanceRequest whole = DecodeInstanceRequest(request + "TPWM");
    ASSERT_EQ(whole.status, DecodedInstanceRequest::Complete);
    EXPECT_EQ(whole.consumed, request.size());
    EXPECT_EQ(whole.dwData, 7482u);
    EXPECT_EQ(whole.data, path);

    for (int field : {0, 4, 12}) { // magic, kind, a length past the largest payload
        QByteArray bad = request.left(kInstanceHeaderBytes);
        bad[field + 3] = '\x7f';
        EXPECT_EQ(DecodeInstanceRequest(bad).status, DecodedInstanceRequest::Malformed) << field;
    }
}

} // namespace
} // namespace talvo
