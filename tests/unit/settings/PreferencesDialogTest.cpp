#include "settings/PreferencesDialog.h"

#include "base/CommandIds.h"
#include "platform/MessageBox.h"
#include "platform/MessageWindow.h"
#include "settings/SettingsStore.h"
#include "tests/support/TestDevice.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <gtest/gtest.h>

namespace talvo {
namespace {

constexpr int kPocketPc = 0;
constexpr int kSmartphone = 1;

// Stands in for the main window: counts the commands posted to it.
class CommandCounter : public MessageWindow {
public:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM) override
    {
        if (message == WM_COMMAND)
            commands.push_back(static_cast<int>(wParam & 0xFFFF));
        return 0;
    }
    std::vector<int> commands;
};

class PreferencesDialogTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_NE(registry_, nullptr);
        store_ = std::make_unique<SettingsStore>(*registry_);
    }

    bool Stored(std::u16string_view name)
    {
        HKEY key = 0;
        if (registry_->OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", KEY_READ, &key) != ERROR_SUCCESS)
            return false;
        DWORD size = 0;
        bool found = registry_->QueryValue(key, name, nullptr, nullptr, &size) == ERROR_SUCCESS;
        registry_->CloseKey(key);
        return found;
    }

    // With TALVO_SCREENSHOT_DIR set, keeps a picture of the dialog for a person to look at.
    static void Screenshot(QDialog& dialog, const char* name)
    {
        QString dir = qEnvironmentVariable("TALVO_SCREENSHOT_DIR");
        if (dir.isEmpty())
            return;
        QDir().mkpath(dir);
        dialog.ensurePolished();
        dialog.resize(dialog.sizeHint().expandedTo(QSize(240, 320)));
        dialog.grab().save(QDir(dir).filePath(QString::fromLatin1(name)));
    }

    template <class W> static W* Child(QDialog& dialog, const char* name)
    {
        W* widget = dialog.findChild<W*>(QString::fromLatin1(name));
        EXPECT_NE(widget, nullptr) << name;
        return widget;
    }

    test::TestDevice device_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<SettingsStore> store_;
};

TEST_F(PreferencesDialogTest, PocketPcOpensOnTheStoredValues)
{
    store_->SetPowerOffTime(45); // not in the list
    PreferencesDialog dialog(*store_, kPocketPc, 5);
    Screenshot(dialog, "preferences-pocketpc.png");

    auto* list = Child<QComboBox>(dialog, "powerOffList");
    EXPECT_EQ(list->count(), 6);
    EXPECT_EQ(list->currentIndex(), 0);
    EXPECT_EQ(list->currentText(), QStringLiteral("30 sec"));
    EXPECT_EQ(list->itemText(2), QStringLiteral("1.5 min"));
    EXPECT_TRUE(Child<QRadioButton>(dialog, "screenOffAfter")->isChecked());
    auto* slider = Child<QSlider>(dialog, "volumeSlider");
    EXPECT_EQ(slider->value(), 49);
    EXPECT_EQ(slider->maximum(), 100);
    EXPECT_EQ(slider->pageStep(), 10);
    EXPECT_EQ(Child<QLabel>(dialog, "volumePercent")->text(), QStringLiteral("49%"));
    EXPECT_EQ(dialog.focusWidget(), slider);
    EXPECT_EQ(dialog.findChild<QComboBox*>(QStringLiteral("jumpBackList")), nullptr);

    store_->SetPowerOffTime(kPowerOffNever);
    PreferencesDialog never(*store_, kPocketPc, 5);
    EXPECT_TRUE(Child<QRadioButton>(never, "screenNeverOff")->isChecked());
    EXPECT_EQ(Child<QComboBox>(never, "powerOffList")->currentIndex(), 0);
}

TEST_F(PreferencesDialogTest, EverySliderMoveStoresAndPostsUpdateVolume)
{
    CommandCounter mainWindow;
    auto* dialog = new PreferencesDialog(*store_, kPocketPc, 5, &mainWindow);
    auto* slider = Child<QSlider>(*dialog, "volumeSlider");

    slider->setValue(70);
    EXPECT_EQ(store_->GetVolume(), 45874u); // 70 x 655.35, truncated
    EXPECT_EQ(Child<QLabel>(*dialog, "volumePercent")->text(), QStringLiteral("70%"));
    slider->triggerAction(QAbstractSlider::SliderPageStepSub);
    EXPECT_EQ(store_->GetVolume(), 39321u);
    QApplication::processEvents();
    EXPECT_EQ(mainWindow.commands, (std::vector<int>{Command::UpdateVolume, Command::UpdateVolume}));

    // Cancel undoes nothing: the volume was stored at the move.
    Child<QPushButton>(*dialog, "cancelButton")->click();
    EXPECT_EQ(dialog->result(), IDCANCEL);
    EXPECT_EQ(store_->GetVolume(), 39321u);
    EXPECT_FALSE(Stored(u"Power Off Time"));
    EXPECT_FALSE(Stored(u"Jump Back"));
}

TEST_F(PreferencesDialogTest, PocketPcOkStoresVolumeAndPowerOff)
{
    PreferencesDialog dialog(*store_, kPocketPc, 5);
    auto* list = Child<QComboBox>(dialog, "powerOffList");
    list->setCurrentIndex(4);
    Child<QPushButton>(dialog, "okButton")->click();
    EXPECT_EQ(dialog.result(), IDOK);
    EXPECT_EQ(store_->GetPowerOffTime(), 300u);
    EXPECT_EQ(store_->GetVolume(), 32112u); // the slider's 49 %, not the old 32767
    EXPECT_FALSE(Stored(u"Jump Back"));

    PreferencesDialog never(*store_, kPocketPc, 5);
    Child<QRadioButton>(never, "screenNeverOff")->setChecked(true);
    never.accept();
    EXPECT_EQ(store_->GetPowerOffTime(), kPowerOffNever);
}

TEST_F(PreferencesDialogTest, SmartphoneLayoutAndDone)
{
    store_->SetJumpBack(40);
    store_->SetPowerOffTime(600);
    PreferencesDialog dialog(*store_, kSmartphone, 5);
    Screenshot(dialog, "preferences-smartphone.png");

    EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Preferences"));
    auto* jumpBack = Child<QComboBox>(dialog, "jumpBackList");
    EXPECT_EQ(jumpBack->currentText(), QStringLiteral("40 sec"));
    EXPECT_EQ(dialog.focusWidget(), jumpBack);
    auto* powerOff = Child<QComboBox>(dialog, "powerOffList");
    EXPECT_FALSE(powerOff->isHidden());
    EXPECT_EQ(powerOff->currentText(), QStringLiteral("10 min"));
    EXPECT_TRUE(Child<QRadioButton>(dialog, "screenNeverOff")->isHidden());
    EXPECT_TRUE(Child<QRadioButton>(dialog, "screenOffAfter")->isHidden());
    auto* done = Child<QPushButton>(dialog, "doneButton");
    EXPECT_EQ(done->text(), QStringLiteral("Done"));

    jumpBack->setCurrentIndex(0);
    powerOff->setCurrentIndex(1);
    done->click();
    EXPECT_EQ(dialog.result(), Command::PreferencesDone);
    EXPECT_EQ(store_->GetJumpBack(), 10u);
    EXPECT_EQ(store_->GetPowerOffTime(), 60u);
}

TEST_F(PreferencesDialogTest, TheListeningAidsAreOffUnlessStoredAndKeptOnlyByOkOrDone)
{
    EXPECT_EQ(store_->GetSkipSilence(), 0u);
    EXPECT_EQ(store_->GetSmartRewind(), 0u);
    store_->SetSmartRewind(1);
    for (int platform : {kPocketPc, kSmartphone}) {
        PreferencesDialog dialog(*store_, platform, 5);
        auto* skip = Child<QCheckBox>(dialog, "skipSilence");
        auto* rewind = Child<QCheckBox>(dialog, "smartRewind");
        EXPECT_FALSE(skip->isChecked());
        EXPECT_TRUE(rewind->isChecked());
        skip->setChecked(true);
        dialog.reject();
        EXPECT_EQ(store_->GetSkipSilence(), 0u);
    }
    PreferencesDialog dialog(*store_, kSmartphone, 5);
    Child<QCheckBox>(dialog, "skipSilence")->setChecked(true);
    Child<QCheckBox>(dialog, "smartRewind")->setChecked(false);
    Child<QPushButton>(dialog, "doneButton")->click();
    EXPECT_EQ(store_->GetSkipSilence(), 1u);
    EXPECT_EQ(store_->GetSmartRewind(), 0u);
}

TEST_F(PreferencesDialogTest, SmartphoneWithoutThePowerOffListLeavesItAlone)
{
    store_->SetJumpBack(25); // not in the list
    PreferencesDialog dialog(*store_, kSmartphone, 4);
    EXPECT_EQ(Child<QComboBox>(dialog, "jumpBackList")->currentText(), QStringLiteral("10 sec"));
    EXPECT_TRUE(Child<QComboBox>(dialog, "powerOffList")->isHidden());
    EXPECT_TRUE(Child<QLabel>(dialog, "powerOffLabel")->isHidden());
    dialog.accept();
    EXPECT_EQ(store_->GetJumpBack(), 10u);
    EXPECT_FALSE(Stored(u"Power Off Time"));
}

TEST_F(PreferencesDialogTest, SmartphoneKeepsNeverUntilATimeIsChosen)
{
    store_->SetPowerOffTime(kPowerOffNever);
    PreferencesDialog untouched(*store_, kSmartphone, 5);
    untouched.accept();
    EXPECT_EQ(store_->GetPowerOffTime(), kPowerOffNever);

    PreferencesDialog chosen(*store_, kSmartphone, 5);
    auto* list = Child<QComboBox>(chosen, "powerOffList");
    list->setCurrentIndex(3);
    emit list->activated(3); // what a user's choice in the list signals
    chosen.accept();
    EXPECT_EQ(store_->GetPowerOffTime(), 120u);
}

} // namespace
} // namespace talvo
