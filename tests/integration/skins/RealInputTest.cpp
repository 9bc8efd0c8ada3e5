// Real pointer events on a real X server: the player's window on Xvfb, taps and
// holds sent by xdotool.  X key auto-repeat is switched off (xset r off) and
// the test times its holds itself.
#include "app/CMainFrame.h"
#include "base/CommandIds.h"
#include "base/DetectPlatform.h"
#include "base/StringTable.h"
#include "library/ProgramStateStore.h"
#include "playback/ProgramFile.h"
#include "skins/SkinnedDisplay.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QThread>
#include <QTimer>
#include <QTreeWidget>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>

namespace talvo::test {
namespace {

// Where every cumulative sum of fast-forward hold steps lies (1, 1, 6, 6, 6,
// 11, ... seconds): the position after a hold of n steps from 0.
std::vector<std::uint32_t> holdPositions(int steps)
{
    std::vector<std::uint32_t> sums;
    std::uint32_t sum = 0;
    for (int n = 1; n <= steps; ++n) {
        sum += static_cast<std::uint32_t>(n / 3) * 5000 + 1000;
        sums.push_back(sum);
    }
    return sums;
}

// Runs xdotool while this thread keeps serving the window's events.
bool xdotool(const QStringList& arguments)
{
    QProcess tool;
    tool.start(QStringLiteral("xdotool"), arguments);
    if (!tool.waitForStarted())
        return false;
    while (tool.state() != QProcess::NotRunning)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

void serveFor(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

// Real input for the player's own loops: each step waits until what it acts
// on is on the screen (a menu popped up, a modal dialog shown), then sends
// its events through xdotool without waiting, so the menus and dialogs that
// the events open keep running their loops meanwhile.
class InputScript : public QObject {
public:
    // Answers the xdotool arguments once its target is there, else nothing.
    using Step = std::function<std::optional<QStringList>()>;

    explicit InputScript(std::vector<Step> steps) : steps_(std::move(steps))
    {
        connect(&poll_, &QTimer::timeout, this, &InputScript::advance);
        poll_.start(50);
    }
    bool Done() const { return next_ == steps_.size() && tool_.state() == QProcess::NotRunning; }
    std::size_t StepsSent() const { return next_; }

private:
    void advance()
    {
        if (next_ == steps_.size() || tool_.state() != QProcess::NotRunning)
            return;
        if (std::optional<QStringList> arguments = steps_[next_]()) {
            ++next_;
            tool_.start(QStringLiteral("xdotool"), *arguments);
        }
    }

    std::vector<Step> steps_;
    std::size_t next_ = 0;
    QProcess tool_;
    QTimer poll_;
};

QStringList clickAt(QPoint global)
{
    return {"mousemove", "--sync", QString::number(global.x()), QString::number(global.y()), "click", "1"};
}

// A click on the menu item of that text in the menu that is up.
InputScript::Step clickMenuItem(const QString& text)
{
    return [text]() -> std::optional<QStringList> {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (!menu || !menu->isVisible())
            return std::nullopt;
        for (QAction* action : menu->actions()) {
            if (action->text() == text)
                return clickAt(menu->mapToGlobal(menu->actionGeometry(action).center()));
        }
        return std::nullopt;
    };
}

// The modal dialog of that caption, when it is up.
QDialog* modalDialog(const QString& caption)
{
    auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
    return dialog && dialog->isVisible() && dialog->windowTitle() == caption ? dialog : nullptr;
}

QLineEdit* nameField(const QString& caption)
{
    QDialog* dialog = modalDialog(caption);
    return dialog ? dialog->findChild<QLineEdit*>(QStringLiteral("bookmarkName")) : nullptr;
}

// Clicks into the name field of the name dialog and types the name over its
// text, then, once the field shows it, presses Enter.  (type takes every
// word after it as text, so Enter is a step of its own.)
std::vector<InputScript::Step> typeName(const QString& caption, const QString& name)
{
    InputScript::Step type = [caption, name]() -> std::optional<QStringList> {
        QLineEdit* field = nameField(caption);
        if (!field)
            return std::nullopt;
        return clickAt(field->mapToGlobal(field->rect().center())) +
               QStringList{"key", "ctrl+a", "type", "--delay", "30", name};
    };
    InputScript::Step enter = [caption, name]() -> std::optional<QStringList> {
        QLineEdit* field = nameField(caption);
        if (!field || field->text() != name)
            return std::nullopt;
        return QStringList{"key", "Return"};
    };
    return {type, enter};
}

// A click on a point of the dialog of that caption, found by find (a global
// point; nothing while it is not there).
InputScript::Step clickIn(const QString& caption, std::function<std::optional<QPoint>(QDialog&)> find)
{
    return [caption, find]() -> std::optional<QStringList> {
        QDialog* dialog = modalDialog(caption);
        std::optional<QPoint> point = dialog ? find(*dialog) : std::nullopt;
        if (!point)
            return std::nullopt;
        return clickAt(*point);
    };
}

std::optional<QPoint> visibleCentre(QWidget* widget)
{
    if (!widget || !widget->isVisible())
        return std::nullopt;
    return widget->mapToGlobal(widget->rect().center());
}

// The centre of row `row` of the dialog's list.
std::optional<QPoint> rowOf(QDialog& dialog, int row)
{
    auto* rows = dialog.findChild<QTreeWidget*>();
    if (!rows || rows->topLevelItemCount() <= row)
        return std::nullopt;
    return rows->viewport()->mapToGlobal(rows->visualItemRect(rows->topLevelItem(row)).center());
}

QPushButton* buttonOf(QWidget& window, const std::function<bool(QPushButton&)>& match)
{
    for (auto* button : window.findChildren<QPushButton*>()) {
        if (match(*button))
            return button;
    }
    return nullptr;
}

class RealInput : public PlayerFixture {
protected:
    // The global screen point of a layout point of the display.
    QPoint onScreen(QPoint layoutPoint)
    {
        SkinnedDisplay& display = frame_->Display();
        return display.mapToGlobal(display.ToWidget(layoutPoint));
    }
    QPoint centreOf(std::uint16_t command)
    {
        const SkinLayout& skin = *frame_->Display().Skin();
        return skin.pausedButtons[SkinButtonIndex(command)].rect.ToQRect().center();
    }
    void moveTo(QPoint global)
    {
        ASSERT_TRUE(xdotool({"mousemove", QString::number(global.x()), QString::number(global.y())}));
    }

    void startVisiblePlayer()
    {
        startPlayer();
        frame_->resize(frame_->sizeHint());
        frame_->show();
        ASSERT_TRUE(pump([&] { return frame_->isVisible() && frame_->Library().Count() > 0; }));
        serveFor(300); // the window manager-less server maps it at once; let it settle
    }
};

TEST_F(RealInput, HoldingFastForwardMovesThePositionByTheHoldSteps)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 3600);
    startVisiblePlayer();
    ASSERT_EQ(current().Position(), 0u);
    moveTo(onScreen(centreOf(Command::FastForward1min)));
    ASSERT_TRUE(xdotool({"mousedown", "1"}));
    serveFor(1000); // about ten steps of 100 ms
    ASSERT_TRUE(xdotool({"mouseup", "1"}));
    serveFor(200);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::FastForwardHold));
    const std::vector<std::uint32_t> sums = holdPositions(30);
    const auto step = std::find(sums.begin(), sums.end(), current().Position());
    ASSERT_NE(step, sums.end()) << "not a sum of hold steps: " << current().Position();
    // Steps come every 100 ms; a loaded machine may lose a few.
    EXPECT_GE(step - sums.begin() + 1, 4);
    EXPECT_LE(step - sums.begin() + 1, 14);

    // A tap on rewind, released over it: the hold's first step and, stopped,
    // no closing step.
    const std::uint32_t before = current().Position();
    moveTo(onScreen(centreOf(Command::Rewind1min)));
    ASSERT_TRUE(xdotool({"click", "1"}));
    serveFor(300);
    EXPECT_EQ(current().Position(), before - 1000);
}

TEST_F(RealInput, ATitleTapEndsOnTheTitleOrSendsNothing)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startVisiblePlayer();
    SkinnedDisplay& display = frame_->Display();
    const QRect title = display.Skin()->programTitle.rect.ToQRect();
    const QImage normal = display.Composed().copy(title);
    moveTo(onScreen(title.center()));
    ASSERT_TRUE(xdotool({"mousedown", "1"}));
    serveFor(100);
    // Held: the title shows its pressed look.
    EXPECT_NE(display.Composed().copy(title), normal);
    moveTo(onScreen(centreOf(Command::PlayStop)));
    ASSERT_TRUE(xdotool({"mouseup", "1"}));
    serveFor(200);
    EXPECT_EQ(display.Composed().copy(title), normal);
    // The stylus slid off: nothing was sent, so nothing started to play.
    EXPECT_FALSE(frame_->Audio().IsPlaying());

    // A tap on the play button plays.
    ASSERT_TRUE(xdotool({"click", "1"}));
    EXPECT_TRUE(pump([&] { return frame_->Audio().IsPlaying(); }, 5000));
}

// A listener's whole way with the mouse and the keyboard: a tap on the title
// opens the list, a click and Enter listen to the second program, the soft-key
// menu adds a bookmark under a typed name, and the bookmark list renames it.
TEST_F(RealInput, TheListPlaysTheChosenProgramAndItsBookmarkIsAddedAndRenamed)
{
    WritePcmProgram(musicPath("Author/A/a.zq"), "a", 120);
    const QString b = WritePcmProgram(musicPath("Author/B/b.zq"), "b", 120);
    startVisiblePlayer();
    ASSERT_EQ(frame_->Library().Count(), 2);
    QPushButton* menuKey = buttonOf(*frame_, [](QPushButton& button) { return button.menu() != nullptr; });
    ASSERT_NE(menuKey, nullptr);
    const QPoint menuKeyCentre = *visibleCentre(menuKey);
    const QPoint title = onScreen(frame_->Display().Skin()->programTitle.rect.ToQRect().center());
    const bool keyLayout = DetectPlatform() == 1;
    const QString library = LoadString(Str::ListTitle);
    const QString bookmarks = LoadString(Str::BookmarksTitle);
    auto noDialog = [](QPoint point) {
        return [point]() -> std::optional<QStringList> {
            if (QApplication::activeModalWidget())
                return std::nullopt;
            return clickAt(point);
        };
    };
    // Whatever goes wrong, no dialog is left to hold the test.
    QTimer::singleShot(40000, frame_.get(), [] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
            dialog->reject();
    });

    std::vector<InputScript::Step> steps{
        noDialog(title),
        clickIn(library, [](QDialog& dialog) { return rowOf(dialog, 1); }),
        [library]() -> std::optional<QStringList> {
            QDialog* dialog = modalDialog(library);
            auto* rows = dialog ? dialog->findChild<QTreeWidget*>() : nullptr;
            if (!rows || rows->currentIndex().row() != 1)
                return std::nullopt;
            return QStringList{"key", "Return"};
        },
        [this, b, menuKeyCentre]() -> std::optional<QStringList> {
            if (QApplication::activeModalWidget() || current().path != b)
                return std::nullopt;
            current().Seek(42000);
            return clickAt(menuKeyCentre);
        },
        clickMenuItem(LoadString(Str::MenuAddBookmark)),
    };
    for (InputScript::Step& step : typeName(LoadString(Str::AddBookmarkCaption), QStringLiteral("Harbour")))
        steps.push_back(std::move(step));
    steps.push_back(noDialog(menuKeyCentre));
    steps.push_back(clickMenuItem(LoadString(Str::MenuEditBookmarks)));
    steps.push_back(clickIn(bookmarks, [](QDialog& dialog) { return rowOf(dialog, 0); }));
    if (keyLayout) {
        steps.push_back([bookmarks]() -> std::optional<QStringList> {
            if (!modalDialog(bookmarks))
                return std::nullopt;
            return QStringList{"key", "F2"};
        });
    } else {
        steps.push_back(clickIn(bookmarks, [](QDialog& dialog) {
            return visibleCentre(buttonOf(dialog, [](QPushButton& button) {
                return button.text() == LoadString(Str::BookmarksUpdate);
            }));
        }));
    }
    for (InputScript::Step& step :
         typeName(LoadString(Str::RenameBookmarkCaption), QStringLiteral("Lighthouse")))
        steps.push_back(std::move(step));
    steps.push_back(clickIn(bookmarks, [keyLayout](QDialog& dialog) {
        return visibleCentre(buttonOf(dialog, [keyLayout](QPushButton& button) {
            return keyLayout ? button.text() == LoadString(Str::BookmarksDone)
                             : button.objectName() == QStringLiteral("okButton");
        }));
    }));
    InputScript script(std::move(steps));
    ASSERT_TRUE(pump([&] { return script.Done() && !QApplication::activeModalWidget(); }, 50000))
        << "stopped before step " << script.StepsSent();

    EXPECT_EQ(current().path, b);
    ProgramStateStore store(*registry_);
    ProgramFile fresh(b);
    ASSERT_EQ(fresh.ReadMetadata(), ZQX_OK);
    ASSERT_TRUE(fresh.Open(store));
    ASSERT_EQ(fresh.bookmarks.size(), 1u);
    EXPECT_EQ(fresh.bookmarks[0].name, u"Lighthouse");
    // Where the program was when the menu was opened, give or take the time
    // it played on before Add Bookmark was clicked.
    EXPECT_GE(fresh.bookmarks[0].timeMs, 42000u);
    EXPECT_LT(fresh.bookmarks[0].timeMs, 72000u);
}

TEST_F(RealInput, ATapOnTheDarkScreenWakesItAndPlaybackGoesOn)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 600);
    SettingsStore(*registry_).SetPowerOffTime(1);
    startVisiblePlayer();
    frame_->activateWindow();
    ASSERT_TRUE(pump([&] { return QApplication::activeWindow() == frame_.get(); }, 5000));
    moveTo(onScreen(centreOf(Command::PlayStop)));
    ASSERT_TRUE(xdotool({"click", "1"}));
    ASSERT_TRUE(pump([&] { return frame_->Audio().IsPlaying(); }, 5000));
    // The recording display stands in for DPMS, which Xvfb lacks.
    ASSERT_TRUE(pump([&] { return device_.screenSwitches() == QStringList{"off"}; }));

    ASSERT_TRUE(xdotool({"click", "1"}));
    ASSERT_TRUE(pump([&] { return device_.screenSwitches() == QStringList({"off", "on"}); }, 5000));
    serveFor(300);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
    // Awake, the same tap on Play stops.
    ASSERT_TRUE(xdotool({"click", "1"}));
    EXPECT_TRUE(pump([&] { return !frame_->Audio().IsPlaying(); }, 5000));
}

} // namespace
} // namespace talvo::test

namespace {

int runQuietly(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return -1;
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

bool listingOnly(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0)
            return true;
    }
    return false;
}

} // namespace

// A private X server for the whole run, with key auto-repeat off.
int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (listingOnly(argc, argv))
        return RUN_ALL_TESTS();
    int display = 150 + getpid() % 100;
    while (QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(display)))
        ++display;
    QProcess xvfb;
    xvfb.start(QStringLiteral("Xvfb"),
               {QStringLiteral(":%1").arg(display), "-screen", "0", "1024x900x24", "-nolisten", "tcp"});
    if (!xvfb.waitForStarted()) {
        std::fprintf(stderr, "Xvfb could not be started\n");
        return 1;
    }
    qputenv("DISPLAY", QStringLiteral(":%1").arg(display).toLatin1());
    for (int i = 0; i < 100 && runQuietly(QStringLiteral("xdpyinfo"), {}) != 0; ++i)
        QThread::msleep(100);
    runQuietly(QStringLiteral("xset"), {"r", "off"});
    qputenv("QT_QPA_PLATFORM", "xcb");
    int result = 1;
    {
        QApplication app(argc, argv);
        result = RUN_ALL_TESTS();
    }
    xvfb.terminate();
    xvfb.waitForFinished();
    return result;
}
