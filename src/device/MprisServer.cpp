#include "device/MprisServer.h"

#include "base/CommandIds.h"
#include "platform/BusConnection.h"
#include "platform/ProgramFolders.h"

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDir>
#include <QFile>
#include <QUrl>
#include <algorithm>
#include <atomic>
#include <cmath>

namespace talvo {
namespace {

const QString kObjectPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString kPlayerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString kTrackPrefix = QStringLiteral("/org/talvoplayer/program/");
constexpr qlonglong kMicrosecondsPerMs = 1000;
constexpr double kFullVolume = 65535.0;

std::atomic<int> nextConnection{0};

} // namespace

// org.mpris.MediaPlayer2: the application itself.
class MprisRootAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ CanQuit)
    Q_PROPERTY(bool CanRaise READ CanRaise)
    Q_PROPERTY(bool HasTrackList READ HasTrackList)
    Q_PROPERTY(QString Identity READ Identity)
    Q_PROPERTY(QString DesktopEntry READ DesktopEntry)
    Q_PROPERTY(QStringList SupportedUriSchemes READ SupportedUriSchemes)
    Q_PROPERTY(QStringList SupportedMimeTypes READ SupportedMimeTypes)
public:
    MprisRootAdaptor(MprisServer* server) : QDBusAbstractAdaptor(server), server_(server) {}
    bool CanQuit() const { return true; }
    bool CanRaise() const { return true; }
    bool HasTrackList() const { return false; }
    QString Identity() const { return QStringLiteral("TalvoPlayer"); }
    QString DesktopEntry() const { return QStringLiteral("talvoplayer"); }
    QStringList SupportedUriSchemes() const { return {}; }
    QStringList SupportedMimeTypes() const { return {}; }
public slots:
    void Raise() { server_->Raise(); }
    void Quit() { server_->Quit(); }

private:
    MprisServer* server_;
};

// org.mpris.MediaPlayer2.Player: transport, position, metadata and volume.
class MprisPlayerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ PlaybackStatus)
    Q_PROPERTY(double Rate READ Rate WRITE SetRate)
    Q_PROPERTY(double MinimumRate READ MinimumRate)
    Q_PROPERTY(double MaximumRate READ MaximumRate)
    Q_PROPERTY(QVariantMap Metadata READ Metadata)
    Q_PROPERTY(double Volume READ Volume WRITE SetVolume)
    Q_PROPERTY(qlonglong Position READ Position)
    Q_PROPERTY(bool CanGoNext READ HasProgram)
    Q_PROPERTY(bool CanGoPrevious READ HasProgram)
    Q_PROPERTY(bool CanPlay READ HasProgram)
    Q_PROPERTY(bool CanPause READ HasProgram)
    Q_PROPERTY(bool CanSeek READ HasProgram)
    Q_PROPERTY(bool CanControl READ CanControl)
public:
    MprisPlayerAdaptor(MprisServer* server) : QDBusAbstractAdaptor(server), server_(server) {}
    QString PlaybackStatus() const { return server_->PlaybackStatus(); }
    double Rate() const { return server_->Rate(); }
    void SetRate(double rate) { server_->SetRate(rate); }
    double MinimumRate() const
    {
        return double{SpeechProcessing::kMinimumSpeed} / SpeechProcessing::kNormalSpeed;
    }
    double MaximumRate() const
    {
        return double{SpeechProcessing::kMaximumSpeed} / SpeechProcessing::kNormalSpeed;
    }
    QVariantMap Metadata() const { return server_->Metadata(); }
    double Volume() const { return server_->Volume(); }
    void SetVolume(double volume) { server_->SetVolume(volume); }
    qlonglong Position() const { return server_->Position(); }
    bool HasProgram() const { return server_->HasProgram(); }
    bool CanControl() const { return true; }
public slots:
    void Next() { server_->Next(); }
    void Previous() { server_->Previous(); }
    void Pause() { server_->Pause(); }
    void PlayPause() { server_->PlayPause(); }
    void Stop() { server_->Stop(); }
    void Play() { server_->Play(); }
    void Seek(qlonglong offset) { server_->Seek(offset); }
    void SetPosition(const QDBusObjectPath& trackId, qlonglong position)
    {
        server_->SetPosition(trackId.path(), position);
    }
    void OpenUri(const QString&) {}
signals:
    void Seeked(qlonglong position);

private:
    MprisServer* server_;
};

MprisServer::MprisServer(MprisPlayerObjects objects)
    : objects_(std::move(objects)), connectionName_(QStringLiteral("talvo-mpris-%1").arg(nextConnection++)),
      bus_(ConnectToSessionBus(connectionName_))
{
    new MprisRootAdaptor(this);
    player_ = new MprisPlayerAdaptor(this);
}

MprisServer::~MprisServer()
{
    bus_.unregisterObject(kObjectPath);
    QDBusConnection::disconnectFromBus(connectionName_);
}

bool MprisServer::Start(const QString& busName)
{
    if (!bus_.isConnected() || !bus_.registerObject(kObjectPath, this, QDBusConnection::ExportAdaptors))
        return false;
    heard_ = propertiesToCompare();
    heardJumpCount_ = jumpCount();
    return bus_.registerService(busName);
}

void MprisServer::Refresh()
{
    QVariantMap now = propertiesToCompare();
    QVariantMap changed;
    for (auto it = now.cbegin(); it != now.cend(); ++it) {
        if (heard_.value(it.key()) != it.value())
            changed.insert(it.key(), it.value());
    }
    const bool sameProgram = !changed.contains(QStringLiteral("Metadata"));
    heard_ = std::move(now);
    if (!changed.isEmpty()) {
        QDBusMessage signal =
            QDBusMessage::createSignal(kObjectPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                       QStringLiteral("PropertiesChanged"));
        signal << kPlayerInterface << changed << QStringList();
        bus_.send(signal);
    }
    // A fast-forward or rewind hold moves the position ten times a second and
    // plays nothing until it ends: clients hear of it once, where it ended.
    // One of our own seeks is announced by announceSeek.
    if (seekInProgress_ || objects_.audio.seeking)
        return;
    // A program that starts where it was left starts at an unexpected place.
    if (sameProgram ? jumpCount() != heardJumpCount_ : Position() != 0)
        emit player_->Seeked(Position());
    heardJumpCount_ = jumpCount();
}

std::uint32_t MprisServer::jumpCount() const
{
    const ProgramFile* program = objects_.library.Current();
    return program ? program->jumpCount : 0;
}

QVariantMap MprisServer::propertiesToCompare()
{
    const bool program = HasProgram();
    return {
        {QStringLiteral("PlaybackStatus"), PlaybackStatus()},
        {QStringLiteral("Metadata"), Metadata()},
        {QStringLiteral("Volume"), Volume()},
        {QStringLiteral("Rate"), Rate()},
        {QStringLiteral("CanGoNext"), program},
        {QStringLiteral("CanGoPrevious"), program},
        {QStringLiteral("CanPlay"), program},
        {QStringLiteral("CanPause"), program},
        {QStringLiteral("CanSeek"), program},
    };
}

void MprisServer::Raise()
{
    objects_.view.BringToFront();
}

void MprisServer::Quit()
{
    objects_.window.PostCommand(Command::Exit);
}

// A program is one track to a client; its sections are what next and
// previous move through, one at a time, and each move is a seek in the track.
void MprisServer::Next()
{
    if (!HasProgram())
        return;
    seekInProgress_ = true;
    objects_.transport.NextSectionHold(1);
    announceSeek();
}

void MprisServer::Previous()
{
    if (!HasProgram())
        return;
    seekInProgress_ = true;
    objects_.transport.PreviousSectionHold(1);
    announceSeek();
}

// Play, Pause and Stop look at the player when they are handled and toggle
// only from the other state, so a repeated request never turns it back.
void MprisServer::Pause()
{
    if (objects_.audio.IsPlaying())
        objects_.window.SendCommand(Command::PlayStop);
    Refresh();
}

void MprisServer::Stop()
{
    Pause();
}

void MprisServer::Play()
{
    if (HasProgram() && !objects_.audio.IsPlaying())
        objects_.window.SendCommand(Command::PlayStop);
    Refresh();
}

void MprisServer::PlayPause()
{
    if (HasProgram())
        objects_.window.SendCommand(Command::PlayStop);
    Refresh();
}

void MprisServer::Seek(qlonglong offsetUs)
{
    const ProgramFile* program = objects_.library.Current();
    if (!program)
        return;
    const std::int64_t target =
        static_cast<std::int64_t>(program->Position()) + offsetUs / kMicrosecondsPerMs;
    if (target > static_cast<std::int64_t>(program->durationMs)) {
        Next();
        return;
    }
    seekTo(std::max<std::int64_t>(target, 0));
}

void MprisServer::SetPosition(const QString& track, qlonglong positionUs)
{
    const ProgramFile* program = objects_.library.Current();
    // A stale track id, or a position outside the program, is ignored.
    if (!program || track != MprisTrackId(program->Key()) || positionUs < 0 ||
        positionUs > static_cast<qlonglong>(program->durationMs) * kMicrosecondsPerMs)
        return;
    seekTo(positionUs / kMicrosecondsPerMs);
}

void MprisServer::seekTo(std::int64_t positionMs)
{
    seekInProgress_ = true;
    objects_.transport.SeekTo(static_cast<std::uint32_t>(positionMs));
    announceSeek();
}

void MprisServer::announceSeek()
{
    seekInProgress_ = false;
    heardJumpCount_ = jumpCount();
    emit player_->Seeked(Position());
}

QString MprisServer::PlaybackStatus() const
{
    if (objects_.audio.IsPlaying())
        return QStringLiteral("Playing");
    // Stopping keeps the program and its place: to a client that is a pause.
    return HasProgram() ? QStringLiteral("Paused") : QStringLiteral("Stopped");
}

QVariantMap MprisServer::Metadata()
{
    const ProgramFile* program = objects_.library.Current();
    if (!program)
        return {};
    if (metadataPath_ == program->path)
        return metadata_;
    metadataPath_ = program->path;
    metadata_ = {
        {QStringLiteral("mpris:trackid"), QVariant::fromValue(QDBusObjectPath(MprisTrackId(program->Key())))},
        {QStringLiteral("mpris:length"), static_cast<qlonglong>(program->durationMs) * kMicrosecondsPerMs},
        {QStringLiteral("xesam:title"), QString::fromStdU16String(program->GetTitle())},
        {QStringLiteral("xesam:artist"), QStringList{QString::fromStdU16String(program->GetAuthor())}},
    };
    if (const QString cover = writeCover(*program); !cover.isEmpty())
        metadata_.insert(QStringLiteral("mpris:artUrl"), QUrl::fromLocalFile(cover).toString());
    return metadata_;
}

double MprisServer::Rate() const
{
    return static_cast<double>(objects_.audio.CurrentSpeedTenths()) / SpeechProcessing::kNormalSpeed;
}

void MprisServer::SetRate(double rate)
{
    // A rate outside the range is brought into it; the client reads back
    // the rate that plays.  The menus' path, so the display follows.
    if (!std::isfinite(rate))
        return;
    const double tenths =
        std::clamp(rate * SpeechProcessing::kNormalSpeed, double{SpeechProcessing::kMinimumSpeed},
                   double{SpeechProcessing::kMaximumSpeed});
    objects_.window.SendCommand(static_cast<std::uint16_t>(Command::SpeedBase + std::lround(tenths)));
}

double MprisServer::Volume() const
{
    return std::min(objects_.settings.GetVolume() / kFullVolume, 1.0);
}

void MprisServer::SetVolume(double volume)
{
    const double clamped = std::clamp(volume, 0.0, 1.0);
    objects_.settings.SetVolume(static_cast<DWORD>(clamped * kFullVolume + 0.5));
    objects_.window.SendCommand(Command::UpdateVolume);
    Refresh();
}

qlonglong MprisServer::Position() const
{
    const ProgramFile* program = objects_.library.Current();
    return program ? static_cast<qlonglong>(program->Position()) * kMicrosecondsPerMs : 0;
}

QString MprisTrackId(const QString& programKey)
{
    // An object path allows only [A-Za-z0-9_]: other characters of the key
    // are written as _ and their code in hex.
    QString id = kTrackPrefix;
    for (QChar c : programKey) {
        if ((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9'))
            id += c;
        else
            id += QStringLiteral("_%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return id;
}

QString MprisServer::writeCover(const ProgramFile& program) const
{
    const std::vector<std::uint8_t> bytes = program.GetCoverPicture();
    if (bytes.empty())
        return {};
    QString name = program.Key();
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
    const QString path =
        QDir(ProgramWriteFolder(objects_.programFolder)).filePath(name + QStringLiteral(".jpg"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(bytes.size())) !=
            static_cast<qint64>(bytes.size()))
        return {};
    return path;
}

} // namespace talvo

#include "MprisServer.moc"
