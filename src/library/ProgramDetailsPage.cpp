#include "library/ProgramDetailsPage.h"

#include "base/StringTable.h"
#include "platform/FileNames.h"
#include "platform/ProgramFolders.h"
#include "platform/SystemError.h"
#include "platform/Trace.h"
#include "skins/ImageDecoding.h"

#include <QFile>
#include <QUrl>
#include <cerrno>

namespace talvo {
namespace {

constexpr std::uint64_t kKilobyte = 1024;
constexpr std::uint64_t kMegabyte = 1024 * 1024;
// The digit after the point is the remaining kilobytes divided by this.
constexpr std::uint64_t kTenthDivisor = 100;

constexpr std::uint32_t kMsPerSecond = 1000;
constexpr std::uint32_t kSecondsPerMinute = 60;
constexpr std::uint32_t kSecondsPerHour = 3600;

constexpr const char* kPageStart = "<html><body><table border=\"0\"><tr valign=\"top\"><td>";
constexpr const char* kRowsEnd = "</td>";
constexpr const char* kPictureCell = "<td><img src=\"file://%1\"></img></td>";
constexpr const char* kTableEnd = "</tr></table>";
constexpr const char* kDescriptionBreak = "<br>";
constexpr const char* kPageEnd = "</body></html>";
// Beside the picture the column is narrow: the label stands on its own line
// and the value under it.  Without a picture label and value share a line.
constexpr const char* kValueBesidePicture = "<br>%1</br>";
constexpr const char* kValueAlone = " %1<br>";

constexpr std::int32_t kFirstNamedFileType = 1;
constexpr std::int32_t kLastNamedFileType = 5;
static_assert(Str::Format1 + (kLastNamedFileType - kFirstNamedFileType) == Str::Format5);

QString fromSdk(const std::u16string& text)
{
    return QString::fromStdU16String(text);
}

// A key is an identifier taken from the program file; a "/" in it would reach
// outside the folder, and a NUL would cut the name short.
QString fileBaseName(const QString& key)
{
    QString name = key;
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
    name.replace(QChar(0), QLatin1Char('_'));
    return name;
}

QString hmsText(std::uint32_t ms)
{
    const std::uint32_t seconds = ms / kMsPerSecond;
    return FormatString(Str::TimeHms, static_cast<int>(seconds / kSecondsPerHour),
                        static_cast<int>(seconds % kSecondsPerHour / kSecondsPerMinute),
                        static_cast<int>(seconds % kSecondsPerMinute));
}

// Creates the file (always overwriting) and writes bytes in one write.  On
// failure errno is left as the failing call set it.
bool writeWholeFile(const QString& path, const char* data, qint64 length, QString* errorText)
{
    QFile file(path);
    errno = 0;
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        if (errorText != nullptr)
            *errorText = file.errorString();
        return false;
    }
    errno = 0;
    if (file.write(data, length) != length || !file.flush()) {
        const int error = errno;
        if (errorText != nullptr)
            *errorText = file.errorString();
        file.close();
        // A page cut short would show as a broken page; none is better.
        file.remove();
        errno = error;
        return false;
    }
    file.close();
    return true;
}

// A picture no decoder can read (damaged, truncated before its image, too
// large, or not a picture at all) would show as a broken image; the page then
// goes without one, as it does for a program without a cover.
bool coverCanBeShown(const std::vector<std::uint8_t>& cover)
{
    return !cover.empty() && !DecodeImage(cover.data(), cover.size()).isNull();
}

QString pictureCell(const QString& picturePath)
{
    // The folder is the listener's and may hold blanks, "#", "%" or quotes,
    // each of which would cut the address short inside src="...".
    const QByteArray address = QUrl::toPercentEncoding(picturePath, "/");
    return QString::fromLatin1(kPictureCell).arg(QString::fromLatin1(address));
}

} // namespace

ProgramDetails GatherProgramDetails(const ProgramEntry& entry)
{
    ProgramDetails details;
    details.author = fromSdk(entry.GetAuthor());
    details.narrator = fromSdk(entry.GetNarrator());
    details.provider = fromSdk(entry.GetProvider());
    details.description = fromSdk(entry.GetDescription());
    // A file the file system cannot find counts as 0 bytes; the row stays.
    details.sizeBytes = static_cast<std::uint32_t>(StatusOfPath(entry.path).sizeBytes);
    details.runningTimeMs = entry.durationMs;
    details.fileType = entry.fileType;
    details.inMainMemory = entry.inMainMemory;
    details.cover = entry.GetCoverPicture();
    return details;
}

QString SizeText(std::uint64_t bytes)
{
    if (bytes > kMegabyte) {
        const std::uint64_t whole = bytes / kMegabyte;
        const std::uint64_t restKb = (bytes - whole * kMegabyte) / kKilobyte;
        return FormatString(Str::SizeMegabytes, static_cast<long>(whole),
                            static_cast<long>(restKb / kTenthDivisor));
    }
    if (bytes >= kKilobyte)
        return FormatString(Str::SizeKilobytes, static_cast<long>(bytes / kKilobyte));
    return FormatString(Str::SizeBytes, static_cast<long>(bytes));
}

QString AudioFormatText(std::int32_t fileType)
{
    if (fileType < kFirstNamedFileType || fileType > kLastNamedFileType)
        return LoadString(Str::UnknownFormat);
    return LoadString(Str::Format1 + (fileType - kFirstNamedFileType));
}

QString DetailsFolder(const QString& programFolder)
{
    return ProgramWriteFolder(programFolder);
}

bool WriteDetailsPage(const ProgramDetails& details, const QString& key, const QString& folder,
                      DetailsPageFiles* files, QString* errorText)
{
    const QString base = folder + QLatin1Char('/') + fileBaseName(key);
    const QString picturePath = base + QStringLiteral(".jpg");
    const QString pagePath = base + QStringLiteral(".html");
    if (files != nullptr)
        *files = {pagePath, QString()};
    QFile::remove(picturePath);
    QFile::remove(pagePath);

    // Metadata texts come from whoever made the program file.  They are text,
    // not markup: a title holding "<b>" or "</table>" must show as written and
    // must not reshape the page or load anything.
    const struct {
        Str::Id label;
        QString value;
    } rows[] = {
        {Str::DetailsAuthor, details.author.toHtmlEscaped()},
        {Str::DetailsNarrator, details.narrator.toHtmlEscaped()},
        {Str::DetailsProvider, details.provider.toHtmlEscaped()},
        {Str::DetailsSize, SizeText(details.sizeBytes)},
        {Str::DetailsRunningTime, hmsText(details.runningTimeMs)},
        {Str::DetailsAudioFormat, AudioFormatText(details.fileType)},
        {Str::DetailsLocation, LoadString(details.inMainMemory ? Str::MainMemory : Str::StorageCard)},
    };

    QString cell;
    if (coverCanBeShown(details.cover)) {
        if (writeWholeFile(picturePath, reinterpret_cast<const char*>(details.cover.data()),
                           static_cast<qint64>(details.cover.size()), nullptr))
            cell = pictureCell(picturePath);
        else
            Trace("Failed to create file '%s'. Error %d\n", picturePath.toUtf8().constData(),
                  static_cast<int>(ErrorCodeFromErrno(errno)));
    }

    const QString wrapping = QString::fromLatin1(cell.isEmpty() ? kValueAlone : kValueBesidePicture);
    QString page = QString::fromLatin1(kPageStart);
    for (const auto& row : rows) {
        if (row.value.isEmpty())
            continue;
        // The label texts hold "%s" for the value; QString::arg would also
        // replace "%1" inside a value, so the value goes in by replace.
        QString wrapped = wrapping;
        wrapped.replace(QStringLiteral("%1"), row.value);
        QString line = LoadString(row.label);
        line.replace(QStringLiteral("%s"), wrapped);
        page += line;
    }
    page += QString::fromLatin1(kRowsEnd);
    page += cell;
    page += QString::fromLatin1(kTableEnd);
    if (!details.description.isEmpty()) {
        page += QString::fromLatin1(kDescriptionBreak);
        page += details.description.toHtmlEscaped();
    }
    page += QString::fromLatin1(kPageEnd);

    // Two bytes a character, little-endian, no byte-order mark, no terminator.
    QByteArray bytes;
    bytes.reserve(page.size() * 2);
    for (QChar c : page) {
        bytes.append(static_cast<char>(c.unicode() & 0xFF));
        bytes.append(static_cast<char>(c.unicode() >> 8));
    }
    QString reason;
    if (!writeWholeFile(pagePath, bytes.constData(), bytes.size(), &reason)) {
        Trace("Failed to create file '%s'. Error 0x0%x\n", pagePath.toUtf8().constData(),
              static_cast<unsigned>(ErrorCodeFromErrno(errno)));
        if (!cell.isEmpty())
            QFile::remove(picturePath);
        if (errorText != nullptr)
            *errorText = reason;
        return false;
    }
    if (files != nullptr && !cell.isEmpty())
        files->picture = picturePath;
    return true;
}

} // namespace talvo
