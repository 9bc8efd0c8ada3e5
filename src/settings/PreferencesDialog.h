#pragma once
// The Preferences dialog: screen power-off time, jump-back length
// (Smartphone) and volume.  Two layouts, chosen by the platform:
// - Pocket PC: groups "Power Conservation" (two radio buttons and the
//   power-off list) and "Volume Control" (slider and percent), OK and Cancel,
//   full screen, focus on the slider.
// - Smartphone: title "Preferences", the jump-back list, the power-off list
//   with its two labels when the OS major version is above 4, the volume
//   slider, and a bottom bar whose left key "Done" sends command 57697; focus
//   on the jump-back list.  Back (Escape) cancels.
//
// Contract:
// - Every move of the slider stores the volume at once (SetVolumePercent),
//   shows it as "%d%%" and posts WM_COMMAND 40001, once, to
//   the parent when the parent is a MessageWindow (the main window), which
//   then applies the stored volume.  Cancel therefore keeps the new volume.
// - OK and Done store the slider's volume, the power-off time (0xFFFFFFFF
//   when "Do not turn off the screen" is checked; the selected value, or 30
//   with none) and on the Smartphone the jump-back value (10 with none).
//   Choosing a time in the power-off list checks the "Turn off the screen"
//   button, so on the Smartphone, whose buttons are hidden, a stored "never"
//   survives Done unless a time is chosen.
// - The dialog ends with the command's id: IDOK (1), 57697 (Done) or
//   IDCANCEL (2); Cancel stores nothing.
// - A stored value that is not in a list selects the list's first position.
// - Both layouts end with a group "Listening" of two check boxes, "Shorten
//   long silences" and "Go back a little after a pause", stored by OK and
//   Done like the rest.
#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QRadioButton;
class QSlider;

namespace talvo {

class SettingsStore;

class PreferencesDialog : public QDialog {
    Q_OBJECT
public:
    // The layout of this system (DetectPlatform, OS major version).
    explicit PreferencesDialog(SettingsStore& settings, QWidget* parent = nullptr);
    // platform: 1 Smartphone, 0 Pocket PC, as DetectPlatform answers.
    PreferencesDialog(SettingsStore& settings, int platform, int osMajorVersion, QWidget* parent = nullptr);

    void accept() override;
    void reject() override;

private:
    void BuildPocketPc();
    void BuildSmartphone(bool showPowerOff);
    QComboBox* MakePowerOffList();
    QWidget* MakeListeningGroup();
    void OnSliderMoved(int percent);
    void StoreAndClose(int commandId);

    SettingsStore& settings_;
    bool smartphone_;
    bool powerOffShown_ = true;
    QSlider* slider_ = nullptr;
    QLabel* percent_ = nullptr;
    QComboBox* powerOff_ = nullptr;
    QComboBox* jumpBack_ = nullptr;
    QRadioButton* neverOff_ = nullptr;
    QRadioButton* offAfter_ = nullptr;
    QCheckBox* skipSilence_ = nullptr;
    QCheckBox* smartRewind_ = nullptr;
};

} // namespace talvo
