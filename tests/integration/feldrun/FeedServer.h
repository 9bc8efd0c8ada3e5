#pragma once
// feed_server.py started for one test: a real HTTP server on 127.0.0.1 serving
// a temporary folder, with scripted faults and a log of every request it saw.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

#include <algorithm>

namespace feldrun::test {

class FeedServer {
public:
    FeedServer()
    {
        QDir(dir_.path()).mkpath(QStringLiteral("root"));
        server_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        server_.start(QStringLiteral("python3"),
                      {QStringLiteral(TALVO_SOURCE_DIR "/tests/integration/feldrun/feed_server.py"), root(),
                       dir_.filePath(QStringLiteral("requests.log"))});
        if (server_.waitForReadyRead(10000))
            port_ = server_.readLine().trimmed().toInt();
    }
    ~FeedServer()
    {
        server_.kill();
        server_.waitForFinished();
    }
    FeedServer(const FeedServer&) = delete;
    FeedServer& operator=(const FeedServer&) = delete;

    bool running() const { return port_ > 0; }
    QString root() const { return dir_.filePath(QStringLiteral("root")); }
    QUrl url(const QString& path) const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port_).arg(path));
    }

    // Puts bytes at path under the served folder.
    void put(const QString& path, const QByteArray& bytes) const
    {
        QDir().mkpath(QFileInfo(root() + path).path());
        QFile file(root() + path);
        file.open(QIODevice::WriteOnly);
        file.write(bytes);
    }

    // The requests seen so far whose line contains every one of the words.
    QStringList requests(const QStringList& words = {}) const
    {
        QFile log(dir_.filePath(QStringLiteral("requests.log")));
        QStringList lines;
        if (log.open(QIODevice::ReadOnly))
            for (const QString& line :
                 QString::fromUtf8(log.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
                if (std::all_of(words.begin(), words.end(),
                                [&](const QString& w) { return line.contains(w); }))
                    lines << line;
        return lines;
    }

private:
    QTemporaryDir dir_;
    QProcess server_;
    int port_ = 0;
};

} // namespace feldrun::test
