#pragma once
// Real program files and a whole device in a temporary folder, for the
// library's tests.
#include "library/ProgramLibrary.h"
#include "library/ProgramStateStore.h"
#include "platform/Registry.h"
#include "platform/StorageCards.h"
#include "tests/support/TestDevice.h"
#include "zqx/zqxwriter.h"

#include <QDir>
#include <QFileInfo>
#include <gtest/gtest.h>
#include <vector>

namespace talvo::test {

struct ProgramShape {
    std::string id = "PROG";
    std::int32_t fileType = ZQX_TYPE_PCM16;
    bool spanFlag = false;
    std::uint32_t spanStart = 0;
    std::uint32_t spanEnd = 0;
    std::uint32_t lengthMs = 2000;
};

// Writes a small 16-bit PCM program (silence) at path, creating its folders.
inline void MakeProgram(const QString& path, const ProgramShape& choice = {})
{
    QDir().mkpath(QFileInfo(path).path());
    constexpr std::uint32_t kRate = 8000;
    CZQXWriter writer;
    ASSERT_EQ(writer.Create(path.toStdString(), choice.fileType, kRate, 1), ZQX_OK) << path.toStdString();
    ASSERT_EQ(writer.SetProgramId(choice.id), ZQX_OK);
    if (choice.spanFlag) {
        ASSERT_EQ(writer.SetTimeSpan(true, choice.spanStart, choice.spanEnd), ZQX_OK);
    }
    std::vector<std::int16_t> silence(kRate * choice.lengthMs / 1000);
    ASSERT_EQ(writer.AddPcm16(silence.data(), silence.size()), ZQX_OK);
    ASSERT_EQ(writer.Finish(), ZQX_OK);
}

inline void WriteJunk(const QString& path, const QByteArray& bytes = QByteArray("not a program", 13))
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

// A device with its registry, the positions store, listed cards and a library
// searching app/, music/ and the cards named in TALVOPLAYER_CARDS.
class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry = OpenSqliteRegistry(device.registryPath().toStdString());
        ASSERT_NE(registry, nullptr);
        store = std::make_unique<ProgramStateStore>(*registry);
        cards = CreateListedStorageCards();
        QDir().mkpath(device.path(QStringLiteral("app")));
        LibraryFolders folders{device.path(QStringLiteral("app")), device.path(QStringLiteral("music")),
                               device.path(QStringLiteral("prefix"))};
        library = std::make_unique<ProgramLibrary>(*registry, *store, *cards, folders);
    }
    void TearDown() override { library.reset(); }

    QString At(const QString& relative) const { return device.path(relative); }
    void SetCards(const QStringList& relatives)
    {
        QStringList folders;
        for (const QString& relative : relatives) {
            QDir().mkpath(At(relative));
            folders.append(At(relative));
        }
        device.set(kStorageCardsVariable, folders.join(QLatin1Char(':')));
    }
    QStringList Paths() const
    {
        QStringList paths;
        for (std::int32_t i = 0; i < library->Count(); ++i)
            paths.append(library->At(i).path);
        return paths;
    }

    TestDevice device;
    std::unique_ptr<Registry> registry;
    std::unique_ptr<ProgramStateStore> store;
    std::unique_ptr<StorageCards> cards;
    std::unique_ptr<ProgramLibrary> library;
};

} // namespace talvo::test
