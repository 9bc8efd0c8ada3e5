#pragma once
// The names in a folder, as the file system lists them: files, folders and
// everything else, "." and ".." left out, in no particular order.  A folder
// that cannot be read lists nothing.  Nothing is asked about each entry, so a
// listing costs one pass over the folder however many files it holds.  Names
// are decoded by DecodeFileName, so every one of them can be opened again.
#include <QString>
#include <QStringList>

namespace talvo {

QStringList ListFolderNames(const QString& folder);

} // namespace talvo
