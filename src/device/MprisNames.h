#pragma once
// What other processes need to find the player on the session bus and to
// tell which program it has open.
#include <QString>

namespace talvo {

// The name under which the player offers itself to MPRIS clients.
inline constexpr char kMprisBusName[] = "org.mpris.MediaPlayer2.talvoplayer";

// The object path that names a program in Metadata's mpris:trackid, made of
// its record key.
QString MprisTrackId(const QString& programKey);

} // namespace talvo
