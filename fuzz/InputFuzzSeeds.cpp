// Writes the seed inputs of one of the fuzz targets over what a stranger can
// hand the player: requests of the single-instance channel, sync command
// lines (arguments separated by NUL), "_DataIn" values, .reg files in UTF-8
// and UTF-16LE, and remote-control queue messages.
//   input_fuzz_seeds FOLDER instance|cmdline|syncdata|regfile|remote

#include "platform/InstanceMessage.h"
#include "platform/RemoteControlQueue.h"

#include <QDir>
#include <QFile>
#include <QStringList>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

using Seeds = QList<QByteArray>;

QByteArray Utf16(const QString& text, bool terminated = true)
{
    QByteArray bytes(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
    if (terminated)
        bytes.append(2, '\0');
    return bytes;
}

Seeds InstanceSeeds()
{
    using talvo::EncodeInstanceRequest;
    using talvo::InstanceRequest;
    const QByteArray path = Utf16(QStringLiteral("/home/listener/Programs/Morning News.zq"));
    Seeds seeds{EncodeInstanceRequest(InstanceRequest::CopyData, 7482, path),
                EncodeInstanceRequest(InstanceRequest::CopyData, 7481, path),
                EncodeInstanceRequest(InstanceRequest::CopyData, 7480, Utf16(QStringLiteral("/media/card"))),
                EncodeInstanceRequest(InstanceRequest::CopyData, 7482, path.left(7)),
                EncodeInstanceRequest(InstanceRequest::CopyData, 1, QByteArray()),
                EncodeInstanceRequest(InstanceRequest::BringToFront, 0, QByteArray())};
    seeds.append(seeds.front().left(20));
    return seeds;
}

Seeds CommandLineSeeds()
{
    const QList<QStringList> lines{
        {QStringLiteral("/GetStorageInfo")},
        {QStringLiteral("-GetAPVersion")},
        {QStringLiteral("/EnumFiles")},
        {QStringLiteral("-GetDeviceManufacturer")},
        {QStringLiteral("/DeleteProgram"), QStringLiteral("/AddProgram")},
        {QStringLiteral("-File:\"/home/listener/Programs/Morning News.zq\"")},
        {QStringLiteral("-File:/media/card/Book.zq"), QStringLiteral("-EnumFiles")},
        {QStringLiteral("x-File:\"\""), QString::fromUtf8("\xC3\xA4-File:\xE2\x82\xAC")},
    };
    Seeds seeds;
    for (const QStringList& arguments : lines)
        seeds.append(arguments.join(QChar(u'\0')).toUtf8());
    return seeds;
}

Seeds SyncDataSeeds()
{
    const QByteArray path = Utf16(QStringLiteral("/media/card/Programs/Book.zq"));
    return {path,
            path.chopped(2),
            path.chopped(3),
            Utf16(QString()),
            QByteArray("\0", 1),
            Utf16(QStringLiteral("\U0001F3A7 Ohrenbuch.zq"))};
}

Seeds RegFileSeeds()
{
    const QString text = QStringLiteral(
        "Windows Registry Editor Version 5.00\r\n\r\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Talvo]\r\n"
        "@=\"default value\"\r\n"
        "\"Name\"=\"text with \\\\ and \\\" escaped\"\r\n"
        "\"Count\"=dword:0000001e\r\n"
        "\"Blob\"=hex:01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,17,18,19,\\\r\n"
        "  1a,1b\r\n"
        "\"Other\"=hex(7):41,00,00,00,00,00\r\n"
        "\"Raw\"=hex(1):41,00,42\r\n"
        "\"Gone\"=-\r\n\r\n"
        "[HKCR\\.zq]\r\n"
        "@=\"TalvoPlayer.Program\"\r\n"
        "; a comment\r\n"
        "[-HKEY_LOCAL_MACHINE\\Software\\Old]\r\n");
    QByteArray utf16le("\xFF\xFE", 2);
    utf16le += Utf16(text, false);
    QString lineFeeds = text;
    lineFeeds.remove(QLatin1Char('\r'));
    return {text.toUtf8(), QByteArray("\xEF\xBB\xBF") + lineFeeds.toUtf8(), utf16le,
            QByteArray("Windows Registry Editor Version 5.00\n[HKLM\\A]\n\"v\"=hex:zz\n")};
}

Seeds RemoteSeeds()
{
    Seeds seeds;
    for (std::uint32_t code : {68u, 69u, 70u, 72u, 75u, 76u, 203u, 204u, 99u}) {
        QByteArray record(talvo::kRemoteRecordSize, '\0');
        std::memcpy(record.data() + 4, &code, sizeof code);
        seeds.append(record);
    }
    seeds.append(seeds.front().left(23));
    seeds.append(seeds.front() + '\0');
    return seeds;
}

struct Target {
    std::string_view name;
    Seeds (*seeds)();
};

constexpr Target kTargets[] = {
    {"instance", InstanceSeeds}, {"cmdline", CommandLineSeeds}, {"syncdata", SyncDataSeeds},
    {"regfile", RegFileSeeds},   {"remote", RemoteSeeds},
};

} // namespace

int main(int argc, char** argv)
{
    for (const Target& target : kTargets) {
        if (argc != 3 || target.name != argv[2])
            continue;
        const QString folder = QString::fromLocal8Bit(argv[1]);
        QDir().mkpath(folder);
        const Seeds seeds = target.seeds();
        for (qsizetype i = 0; i < seeds.size(); ++i) {
            QFile file(QStringLiteral("%1/seed-%2").arg(folder).arg(i));
            if (!file.open(QIODevice::WriteOnly) || file.write(seeds[i]) != seeds[i].size()) {
                std::fprintf(stderr, "cannot write %s\n", qPrintable(file.fileName()));
                return 1;
            }
        }
        return 0;
    }
    std::fprintf(stderr, "usage: %s FOLDER instance|cmdline|syncdata|regfile|remote\n", argv[0]);
    return 2;
}
