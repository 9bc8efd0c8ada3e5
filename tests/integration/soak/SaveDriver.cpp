// A player that saves without end, for the kill soak: the real main window on
// the real registry, adding and renaming bookmarks through its dialogs, moving
// its program's position and setting Preferences values.  Before each save it
// prints "begin NAME VALUE" and after it "done NAME VALUE", unbuffered, so the
// process that kills it knows which values may be in the store: the done ones,
// or the one begun last.
//
// Usage: soak_save_driver PROGRAM-FOLDER SEED
#include "app/CMainFrame.h"
#include "base/CommandIds.h"
#include "library/BookmarkDialogs.h"
#include "platform/null/ManualWaveOut.h"
#include "settings/SettingsStore.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QTimer>
#include <QTreeWidget>
#include <cstdio>
#include <random>

namespace talvo {
namespace {

void say(const char* step, const char* name, const QString& value)
{
    std::printf("%s %s %s\n", step, name, value.toUtf8().constData());
    std::fflush(stdout);
}

QString bookmarksText(const std::vector<Bookmark>& bookmarks)
{
    QStringList parts;
    for (const Bookmark& bookmark : bookmarks)
        parts << QStringLiteral("%1@%2").arg(QString::fromStdU16String(bookmark.name)).arg(bookmark.timeMs);
    return parts.join(QLatin1Char(','));
}

// Answers the name dialog that the next modal step opens.
void answerNameDialog(const QString& name)
{
    QTimer::singleShot(0, [name] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (!dialog)
            std::abort();
        dialog->findChild<QLineEdit*>(QStringLiteral("bookmarkName"))->setText(name);
        dialog->accept();
    });
}

class Driver {
public:
    Driver(CMainFrame& frame, Registry& registry, unsigned seed)
        : frame_(frame), settings_(registry), random_(seed), seed_(seed)
    {
    }

    void SaveOnce()
    {
        switch (pick(4)) {
        case 0:
            setValue(
                "volume", [this](DWORD v) { settings_.SetVolume(v); }, pick(65536));
            break;
        case 1:
            setValue(
                "jumpback", [this](DWORD v) { settings_.SetJumpBack(v); }, 1 + pick(60));
            break;
        case 2:
            addBookmark();
            break;
        default:
            renameBookmark();
            break;
        }
    }

private:
    DWORD pick(DWORD count) { return std::uniform_int_distribution<DWORD>(0, count - 1)(random_); }

    template <typename Set> void setValue(const char* name, Set set, DWORD value)
    {
        say("begin", name, QString::number(value));
        set(value);
        say("done", name, QString::number(value));
    }

    // A new position and a new bookmark there, kept together by one save.
    void addBookmark()
    {
        ProgramFile& program = *frame_.Library().Current();
        if (program.bookmarks.size() >= 12) {
            renameBookmark();
            return;
        }
        program.Seek(1000 * pick(program.durationMs / 1000));
        // Unique across runs: an equal name and time would be dropped as a duplicate.
        const QString name = QStringLiteral("b%1-%2").arg(seed_).arg(++made_);
        std::vector<Bookmark> after = program.bookmarks;
        after.push_back({name.toStdU16String(), program.Position()});
        beginProgram(program, after);
        answerNameDialog(name);
        frame_.SendCommand(Command::AddBookmark);
        endProgram(program);
    }

    void renameBookmark()
    {
        ProgramFile& program = *frame_.Library().Current();
        if (program.bookmarks.empty()) {
            addBookmark();
            return;
        }
        const int row = static_cast<int>(pick(static_cast<DWORD>(program.bookmarks.size())));
        const QString name = QStringLiteral("r%1-%2").arg(seed_).arg(++made_);
        std::vector<Bookmark> after = program.bookmarks;
        after[static_cast<std::size_t>(row)].name = name.toStdU16String();
        beginProgram(program, after);
        QTimer::singleShot(0, [row, name] {
            auto* list = qobject_cast<BookmarkListDialog*>(QApplication::activeModalWidget());
            if (!list)
                std::abort();
            list->SelectRow(row);
            answerNameDialog(name);
            list->RenameSelectedRow();
            // A row still chosen at OK would be jumped to, which is a second save.
            list->findChild<QTreeWidget*>()->clearSelection();
            list->accept();
        });
        frame_.SendCommand(Command::EditBookmarks);
        endProgram(program);
    }

    void beginProgram(const ProgramFile& program, const std::vector<Bookmark>& after)
    {
        say("begin", "position", QString::number(program.Position()));
        say("begin", "bookmarks", bookmarksText(after));
    }

    void endProgram(const ProgramFile& program)
    {
        say("done", "position", QString::number(program.Position()));
        say("done", "bookmarks", bookmarksText(program.bookmarks));
    }

    CMainFrame& frame_;
    SettingsStore settings_;
    std::mt19937 random_;
    unsigned seed_;
    int made_ = 0;
};

} // namespace
} // namespace talvo

int main(int argc, char** argv)
{
    using namespace talvo;
    QApplication app(argc, argv);
    if (argc != 3)
        return 2;
    std::unique_ptr<Registry> registry = OpenSqliteRegistry(qgetenv("TALVOPLAYER_REGISTRY").toStdString());
    if (!registry)
        return 3;
    CMainFrame frame(CMainFrame::Environment{*registry, QString::fromLocal8Bit(argv[1]), QString(),
                                             [] { return std::make_unique<ManualWaveOut>(); }, nullptr});
    // The window finds its programs in a load it posts to itself.
    QElapsedTimer loading;
    loading.start();
    while (!frame.Library().Current() && loading.elapsed() < 20000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    if (!frame.Library().Current())
        return 4;
    std::printf("ready\n");
    std::fflush(stdout);
    Driver driver(frame, *registry, static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)));
    for (;;) {
        driver.SaveOnce();
        QCoreApplication::processEvents();
    }
}
