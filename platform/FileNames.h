#pragma once
// File names on Linux are bytes; the player holds paths as QString (UTF-16).
// Every path crosses between the two here, by one lossless mapping
// (docs/folders.md): bytes that form valid UTF-8 decode as UTF-8, and each
// byte of a sequence that does not becomes the lone surrogate U+DC00 + byte
// (U+DC80 to U+DCFF).  Valid UTF-8 never yields a lone surrogate, so a name
// such as "Caf\xe9" (Latin-1) decodes to a QString that encodes back to the
// same four bytes; QFile::encodeName and decodeName would turn it into "Caf?"
// and a file that cannot be found.  A QString that holds such a name must
// reach the file system through these functions, not through QFile, QFileInfo
// or QDir, which encode the lossy way.
#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>
#include <cstdint>

namespace talvo {

QString DecodeFileName(QByteArrayView bytes);
// A lone surrogate outside U+DC80 to U+DCFF names no file: it encodes as
// U+FFFD does, so a look-up fails instead of finding another file.
QByteArray EncodeFileName(const QString& name);
// What a listener is shown: the escaped bytes as U+FFFD, as the locale
// decodes them.
QString DisplayFileName(const QString& name);
// The process arguments, decoded losslessly.
QStringList DecodeArguments(int argc, const char* const* argv);

struct PathStatus {
    bool exists = false;
    bool isFolder = false;
    std::uint64_t sizeBytes = 0;
};

// What the file system says of the path, following symbolic links; a path
// that cannot be looked at does not exist.
PathStatus StatusOfPath(const QString& path);

} // namespace talvo
