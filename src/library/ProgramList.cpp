#include "library/ProgramList.h"

#include "base/StringTable.h"
#include "library/ProgramDetailsPage.h"
#include "library/ProgramLibrary.h"
#include "platform/FileNames.h"
#include "platform/MessageBox.h"
#include "platform/StorageCards.h"
#include "playback/ProgramFile.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace talvo {
namespace {

constexpr MessageBoxStyle kConfirmDeleteStyle = MB_OKCANCEL | MB_ICONQUESTION;

QString CleanText(const std::u16string& raw)
{
    QString text;
    text.reserve(static_cast<qsizetype>(std::min<std::size_t>(raw.size(), kMaxRowTextLength + 1)));
    for (std::size_t i = 0; i < raw.size() && text.size() <= kMaxRowTextLength; ++i) {
        const char16_t unit = raw[i];
        if (QChar::isHighSurrogate(unit) && i + 1 < raw.size() && QChar::isLowSurrogate(raw[i + 1])) {
            text.append(QChar(unit));
            text.append(QChar(raw[++i]));
        } else if (QChar::isSurrogate(unit)) {
            text.append(QChar(QChar::ReplacementCharacter));
        } else if (unit < u' ' || (unit >= 0x7F && unit < 0xA0) || unit == 0x2028 || unit == 0x2029) {
            // A line break or control character would break the row in two or vanish.
            text.append(QLatin1Char(' '));
        } else {
            text.append(QChar(unit));
        }
    }
    if (text.size() > kMaxRowTextLength) {
        text.truncate(kMaxRowTextLength - 1);
        if (!text.isEmpty() && text.back().isHighSurrogate())
            text.chop(1);
        text.append(QChar(0x2026));
    }
    return text;
}

} // namespace

QString RowTextOf(const ProgramFile& program)
{
    QString text = CleanText(program.GetTitle());
    if (text.trimmed().isEmpty())
        text = CleanText(DisplayFileName(QFileInfo(program.path).fileName()).toStdU16String());
    return text;
}

QString MainMemoryFolder()
{
    const QString home = qEnvironmentVariable("TALVOPLAYER_HOME");
    return home.isEmpty() ? QDir::homePath() : home;
}

ProgramList::ProgramList(ProgramLibrary& library) : library_(library)
{
}

int ProgramList::Refill()
{
    // A refresh appends to the library; the list wants it rebuilt.
    library_.Clear();
    library_.RefreshAll();
    ReadRows();
    const std::int32_t current = library_.CurrentIndex();
    return current >= 0 && current < library_.Count() ? current : -1;
}

void ProgramList::ReadRows()
{
    rows_.clear();
    rows_.reserve(static_cast<std::size_t>(library_.Count()));
    for (std::int32_t i = 0; i < library_.Count(); ++i) {
        const ProgramFile& program = library_.At(i);
        rows_.push_back({RowTextOf(program), program.path});
    }
}

std::int32_t ProgramList::IndexOfRow(int row) const
{
    if (row < 0 || row >= static_cast<int>(rows_.size()))
        return -1;
    const QString& path = rows_[static_cast<std::size_t>(row)].path;
    // Row n is entry n unless the library changed behind the list's back.
    if (row < library_.Count() && library_.At(row).path == path)
        return row;
    return library_.IndexOfPath(path);
}

ProgramList::DeleteResult ProgramList::DeleteRow(int row, QWidget* owner)
{
    if (row < 0 || row >= static_cast<int>(rows_.size()))
        return DeleteResult::Cancelled;
    if (IndexOfRow(row) < 0) {
        ReadRows();
        return DeleteResult::Gone;
    }
    const QString question = FormatString(Str::ConfirmDeleteProgram,
                                          rows_[static_cast<std::size_t>(row)].text.toUtf8().constData());
    if (ShowMessageBox(owner, question, LoadString(Str::AppName), kConfirmDeleteStyle) != IDOK)
        return DeleteResult::Cancelled;
    // The box ran an event loop: look the program up again.
    const std::int32_t index = IndexOfRow(row);
    if (index < 0) {
        ReadRows();
        return DeleteResult::Gone;
    }
    if (!library_.DeleteProgram(library_.At(index)))
        return DeleteResult::Failed;
    // Deleting the current program leaves none current; the list chooses the
    // first one, as the row it then selects.
    if (library_.Current() == nullptr && library_.Count() > 0)
        library_.SelectProgram(0);
    if (index == row && library_.Count() == static_cast<std::int32_t>(rows_.size()) - 1)
        rows_.erase(rows_.begin() + row);
    else
        ReadRows();
    return DeleteResult::Deleted;
}

bool ProgramList::TakeOver(int row)
{
    const std::int32_t index = IndexOfRow(row);
    if (index < 0) {
        ReadRows();
        return false;
    }
    library_.SelectProgram(index);
    return true;
}

QString ProgramList::FreeSpaceHeader(int row, const QString& homeFolder) const
{
    QString where;
    QString folder = homeFolder;
    const std::int32_t index = IndexOfRow(row);
    if (index >= 0 && library_.IsOnStorageCard(library_.At(index).path)) {
        const QString& path = library_.At(index).path;
        folder = QFileInfo(path).absolutePath();
        for (const QString& card : library_.CardNames()) {
            if (path.contains(QLatin1Char('/') + card + QLatin1Char('/'))) {
                where = QStringLiteral(" (%1)").arg(card);
                break;
            }
        }
    }
    StorageSpace space;
    GetStorageSpace(folder, &space);
    return FormatString(Str::FreeSpaceHeader, where.toUtf8().constData(),
                        SizeText(space.availableBytes).toUtf8().constData(),
                        SizeText(space.totalBytes).toUtf8().constData());
}

QString FeldrunPath(const QString& applicationFolder)
{
    QString folder = applicationFolder;
    while (folder.size() > 1 && (folder.endsWith(QLatin1Char('/')) || folder.endsWith(QLatin1Char('\\'))))
        folder.chop(1);
    return folder + QStringLiteral("/Feldrun");
}

bool LaunchFeldrun(const QString& applicationFolder, QWidget* owner)
{
    // Without a folder of its own the player would start whatever "/Feldrun" is.
    if (!applicationFolder.isEmpty() && QProcess::startDetached(FeldrunPath(applicationFolder), {}))
        return true;
    ShowMessageBox(owner, LoadString(Str::FeldrunLaunchFailed), LoadString(Str::ErrorCaption),
                   kErrorBoxStyle);
    return false;
}

} // namespace talvo
