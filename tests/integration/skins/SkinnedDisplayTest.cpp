// Taps, holds and looks of the skinned display, and the skin dialog, on the
// shipped Daylight skin at 480 by 640.
#include "skins/SkinnedDisplay.h"
#include "base/CommandIds.h"
#include "platform/MessageBox.h"
#include "skins/SkinDialog.h"
#include "tests/support/TestDevice.h"

#include <QAccessible>
#include <QCoreApplication>
#include <QFontMetrics>
#include <gtest/gtest.h>

namespace talvo::test {
namespace {

// Records every command that reaches it, sent or posted, in order.
class RecordingWindow : public MessageWindow {
public:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM) override
    {
        if (message == WM_COMMAND)
            commands.push_back(static_cast<int>(wParam));
        return 0;
    }
    std::vector<int> commands;
};

class SkinnedDisplayTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
        skins_ = std::make_unique<SkinList>(*registry_);
        skins_->LoadSkins(QStringLiteral(TALVO_BUILD_DIR "/bin"), QSize(480, 640));
        ASSERT_EQ(skins_->SetActiveSkin(u"Daylight"), ERROR_SUCCESS);
        skin_ = skins_->ActiveSkin();
        display_ = std::make_unique<SkinnedDisplay>(window_);
        display_->resize(480, 640);
        display_->SetSkin(skin_);
        DisplayContent content;
        content.hasProgram = true;
        content.title = QStringLiteral("Morning Notes");
        content.totalMs = 3600000;
        display_->SetContent(content);
    }

    QPoint centreOf(std::uint16_t command) const
    {
        return skin_->pausedButtons[SkinButtonIndex(command)].rect.ToQRect().center();
    }
    std::vector<int> posted()
    {
        QCoreApplication::processEvents();
        return window_.commands;
    }
    QImage areaOf(std::uint16_t command) const
    {
        return display_->Composed().copy(skin_->pausedButtons[SkinButtonIndex(command)].rect.ToQRect());
    }

    TestDevice device_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<SkinList> skins_;
    SkinLayout* skin_ = nullptr;
    RecordingWindow window_;
    std::unique_ptr<SkinnedDisplay> display_;
};

TEST_F(SkinnedDisplayTest, TheRoundPlayButtonHoldsOnlyPointsWithinItsCircle)
{
    const SkinRect r = skin_->pausedButtons[SkinButtonIndex(Command::PlayStop)].rect;
    ASSERT_TRUE(skin_->pausedButtons[SkinButtonIndex(Command::PlayStop)].round);
    EXPECT_EQ(display_->HitTest(centreOf(Command::PlayStop)), int(SkinButtonIndex(Command::PlayStop)));
    // Inside the rectangle, outside the circle: nothing there.
    EXPECT_EQ(display_->HitTest(QPoint(r.left + 1, r.top + 1)), -1);
}

TEST_F(SkinnedDisplayTest, AHeldButtonReleasesOnceWhenTheStylusSlidOffAndTwiceOverItself)
{
    display_->OnStylusDown(centreOf(Command::FastForward1min));
    display_->OnStylusUp(QPoint(1, 1));
    EXPECT_EQ(posted(), (std::vector<int>{21023, 20523}));

    window_.commands.clear();
    display_->OnStylusDown(centreOf(Command::FastForward1min));
    display_->OnStylusUp(centreOf(Command::FastForward1min));
    EXPECT_EQ(posted(), (std::vector<int>{21023, 20523, 20523}));

    // Jump back is no hold: only a completed tap releases it.
    window_.commands.clear();
    display_->OnStylusDown(centreOf(Command::JumpBack));
    display_->OnStylusUp(QPoint(1, 1));
    EXPECT_EQ(posted(), (std::vector<int>{41035}));
}

TEST_F(SkinnedDisplayTest, AVolumeButtonEndsItsRepeatAtOnceOnRelease)
{
    display_->OnStylusDown(centreOf(Command::VolumeUp));
    display_->OnStylusUp(centreOf(Command::VolumeUp));
    // The direct end comes before the posted press is even handled.
    EXPECT_EQ(window_.commands, (std::vector<int>{20534}));
    EXPECT_EQ(posted(), (std::vector<int>{20534, 21034, 20534}));
}

TEST_F(SkinnedDisplayTest, TheTitleOpensTheListOnlyWhenTheTapEndsOnIt)
{
    const QPoint title = skin_->programTitle.rect.ToQRect().center();
    display_->OnStylusDown(title);
    display_->OnStylusUp(QPoint(1, 1));
    EXPECT_TRUE(posted().empty());
    display_->OnStylusDown(title);
    display_->OnStylusUp(title);
    EXPECT_EQ(posted(), (std::vector<int>{20011}));
}

TEST_F(SkinnedDisplayTest, AButtonShowsItsPressedLookWhileHeldButThePlayButtonDoesNot)
{
    const QImage forward = areaOf(Command::FastForward1min);
    const QImage play = areaOf(Command::PlayStop);
    display_->OnStylusDown(centreOf(Command::FastForward1min));
    EXPECT_NE(areaOf(Command::FastForward1min), forward);
    display_->OnStylusUp(centreOf(Command::FastForward1min));
    EXPECT_EQ(areaOf(Command::FastForward1min), forward);

    display_->OnStylusDown(centreOf(Command::PlayStop));
    EXPECT_EQ(areaOf(Command::PlayStop), play);
    display_->OnStylusUp(centreOf(Command::PlayStop));
}

TEST_F(SkinnedDisplayTest, ATitleTooLongForItsAreaScrollsOnTheTitleTimer)
{
    EXPECT_FALSE(window_.IsTimerRunning(Timer::TitleScroll));
    DisplayContent content;
    content.hasProgram = true;
    content.title = QStringLiteral("The Collected Letters of a Lighthouse Keeper, Volume Two");
    display_->SetContent(content);
    EXPECT_TRUE(window_.IsTimerRunning(Timer::TitleScroll));
    const QRect title = skin_->programTitle.rect.ToQRect();
    const QImage before = display_->Composed().copy(title);
    display_->ScrollTitle();
    EXPECT_NE(display_->Composed().copy(title), before);

    content.title = QStringLiteral("Short");
    display_->SetContent(content);
    EXPECT_FALSE(window_.IsTimerRunning(Timer::TitleScroll));
}

TEST_F(SkinnedDisplayTest, AScreenReaderFindsEveryButtonAndTheTextsAndCanPressAButton)
{
    QAccessibleInterface* screen = QAccessible::queryAccessibleInterface(display_.get());
    ASSERT_NE(screen, nullptr);
    ASSERT_EQ(screen->childCount(), int(kSkinButtonCount) + 4);
    for (int i = 0; i < int(kSkinButtonCount); ++i) {
        QAccessibleInterface* button = screen->child(i);
        ASSERT_NE(button, nullptr);
        EXPECT_EQ(button->role(), QAccessible::Button);
        EXPECT_FALSE(button->text(QAccessible::Name).isEmpty());
        EXPECT_EQ(screen->indexOfChild(button), i);
    }
    EXPECT_EQ(screen->child(int(kSkinButtonCount))->text(QAccessible::Name), "Morning Notes");
    EXPECT_EQ(screen->child(int(kSkinButtonCount) + 1)->text(QAccessible::Name), "00:00:00");
    EXPECT_EQ(screen->child(int(kSkinButtonCount) + 2)->text(QAccessible::Name), "01:00:00 Total");

    // Pressing through the screen reader taps the button.
    QAccessibleInterface* forward = screen->child(int(SkinButtonIndex(Command::FastForward1min)));
    ASSERT_NE(forward->actionInterface(), nullptr);
    forward->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(posted(), (std::vector<int>{21023, 20523, 20523}));
}

TEST_F(SkinnedDisplayTest, TheSkinDialogChangesTheSkinOnlyOnOk)
{
    ASSERT_GE(skins_->Skins().size(), 3u);
    const std::u16string before = skins_->StoredActiveSkin();
    {
        SkinDialog dialog(*skins_, window_, false);
        EXPECT_EQ(dialog.SelectedIndex(), skins_->ActiveIndex());
        dialog.Select(2);
        dialog.reject();
        EXPECT_EQ(dialog.result(), IDCANCEL);
    }
    EXPECT_EQ(skins_->StoredActiveSkin(), before);
    EXPECT_TRUE(posted().empty());

    SkinDialog dialog(*skins_, window_, true);
    dialog.Select(2);
    dialog.accept();
    EXPECT_EQ(dialog.result(), IDOK);
    EXPECT_EQ(skins_->ActiveIndex(), 2);
    EXPECT_EQ(skins_->StoredActiveSkin(), skins_->Skins()[2]->name);
    EXPECT_EQ(posted(), (std::vector<int>{Command::ResetSkin}));
}

} // namespace
} // namespace talvo::test
