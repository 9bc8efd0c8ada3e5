#pragma once
// The player as an MPRIS2 media player on the session bus
// (org.mpris.MediaPlayer2.<name>), which is how desktop media keys and
// Bluetooth headsets (through BlueZ) reach a Linux player.  Its requests take
// the remote control's path: the play/stop command 20015, the section
// commands and the transport's steps, never playback directly.
//
// Contract: everything runs on the user-interface thread; D-Bus calls arrive
// there as events, so a client that floods or vanishes costs the window only
// the handling of what it sent.  Refresh compares the player with what
// clients last heard and sends PropertiesChanged for what differs, and Seeked
// once for every jump of the position (a step, a section move, a bookmark, the
// end of a hold, a Seek or SetPosition, a program that starts where it was
// left), never for playing on.
#include "device/MprisNames.h"
#include "library/ProgramLibrary.h"
#include "platform/MessageWindow.h"
#include "playback/AudioOutput.h"
#include "playback/PlayerView.h"
#include "playback/Transport.h"
#include "settings/SettingsStore.h"

#include <QDBusConnection>
#include <QObject>
#include <QVariantMap>

namespace talvo {

// What the server drives and reads.
struct MprisPlayerObjects {
    MessageWindow& window;
    PlayerView& view;
    AudioOutput& audio;
    ProgramLibrary& library;
    Transport& transport;
    SettingsStore& settings;
    QString programFolder; // the program's own folder (covers go to its write folder)
};

class MprisPlayerAdaptor;

class MprisServer final : public QObject {
public:
    explicit MprisServer(MprisPlayerObjects objects);
    ~MprisServer() override;

    // Registers the player on the session bus; false without one, or when the
    // name is taken.
    bool Start(const QString& busName);
    void Refresh();

    // The interfaces' operations (the adaptors forward to these).
    void Raise();
    void Quit();
    void Next();
    void Previous();
    void Pause();
    void PlayPause();
    void Stop();
    void Play();
    void Seek(qlonglong offsetUs);
    void SetPosition(const QString& trackId, qlonglong positionUs);

    QString PlaybackStatus() const;
    QVariantMap Metadata();
    double Rate() const;
    void SetRate(double rate);
    double Volume() const;
    void SetVolume(double volume);
    qlonglong Position() const;
    bool HasProgram() const { return objects_.library.Current() != nullptr; }

private:
    QVariantMap propertiesToCompare();
    void seekTo(std::int64_t positionMs);
    void announceSeek();
    std::uint32_t jumpCount() const;
    QString writeCover(const ProgramFile& program) const;

    MprisPlayerObjects objects_;
    QString connectionName_;
    QDBusConnection bus_;
    MprisPlayerAdaptor* player_ = nullptr;
    QVariantMap heard_;                // the properties as clients last heard them
    std::uint32_t heardJumpCount_ = 0; // the program's jumps clients have heard of
    bool seekInProgress_ = false;      // a seek of ours, announced when it is done
    QString metadataPath_;             // the program the cached metadata describes
    QVariantMap metadata_;
};

} // namespace talvo
