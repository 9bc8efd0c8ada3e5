#pragma once
// The .reg text format: export of a key tree, and parsing of a file into
// operations that are applied only when the whole file has parsed.
//
//   Windows Registry Editor Version 5.00
//
//   [HKEY_LOCAL_MACHINE\Software\Talvo]
//   @="default value"
//   "Name"="text with \\ and \" escaped"
//   "Count"=dword:0000001e
//   "Blob"=hex:01,02
//   "Other"=hex(7):41,00,00,00,00,00
//   "Gone"=-
//   [-HKEY_LOCAL_MACHINE\Software\Old]
//
// Export writes UTF-16LE with a byte-order mark and CRLF line ends; import
// accepts that, UTF-8 (with or without a mark) and LF.  REG_SZ data that is
// not clean text (no terminator, a NUL inside, a line break, an odd length)
// is written as hex(1) so that its bytes come back unchanged.
#include "platform/Registry.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <vector>

namespace talvo::reg {

inline constexpr char kRegFileHeader[] = "Windows Registry Editor Version 5.00";

// A key named by its root and its path below the root (names joined by '\').
struct KeyPath {
    HKEY root = HKEY_LOCAL_MACHINE;
    QString path;
};

// "HKLM\Software", "HKEY_CLASSES_ROOT\.zq", ...; none for another root.
std::optional<KeyPath> ParseKeyPath(const QString& text);
// "HKEY_LOCAL_MACHINE\Software\Talvo", stray backslashes removed.
QString FullKeyName(const KeyPath& key);

// Writes the key, its values and every key below it.
RegStatus ExportKeys(Registry& registry, const KeyPath& key, QByteArray* file);

struct RegFileOperation {
    enum Kind { CreateKey, DeleteKey, SetValue, DeleteValue } kind;
    KeyPath key;
    QString name;
    DWORD type = REG_NONE;
    std::vector<std::uint8_t> data;
};

// Parses a whole file; on a fault returns false with "line N: reason" in *error.
bool ParseRegFile(const QByteArray& file, std::vector<RegFileOperation>* operations, QString* error);

// Applies parsed operations in order; stops at the first failure.
RegStatus ApplyOperations(Registry& registry, const std::vector<RegFileOperation>& operations);

} // namespace talvo::reg
