#include "settings/PreferencesDialog.h"

#include "base/CommandIds.h"
#include "base/DetectPlatform.h"
#include "base/StringTable.h"
#include "platform/MessageBox.h"
#include "platform/MessageWindow.h"
#include "settings/SettingsStore.h"

#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QVBoxLayout>

namespace talvo {
namespace {

constexpr int kVolumeMaxPercent = 100;
constexpr int kVolumePageStep = 10;
// The power-off list and its labels came with the fifth OS generation.
constexpr int kFirstOsWithPowerOff = 5;

// A list is heard by its label, not by the choice it shows; its drop-down
// list is a control of its own and needs the name too.
void NameForScreenReaders(QComboBox* list, const QString& name)
{
    list->setAccessibleName(name);
    list->view()->setAccessibleName(name);
}

template <std::size_t N>
void FillList(QComboBox* list, const std::array<SettingChoice, N>& choices, DWORD value)
{
    int position = 0;
    for (std::size_t i = 0; i < N; ++i) {
        list->addItem(LoadString(choices[i].textId));
        if (choices[i].value == value)
            position = static_cast<int>(i);
    }
    list->setCurrentIndex(position);
}

template <std::size_t N>
DWORD SelectedValue(const QComboBox* list, const std::array<SettingChoice, N>& choices, DWORD none)
{
    int position = list->currentIndex();
    return position >= 0 && position < static_cast<int>(N) ? choices[position].value : none;
}

QString PercentText(int percent)
{
    return FormatString(Str::PrefsVolumePercent, percent);
}

} // namespace

PreferencesDialog::PreferencesDialog(SettingsStore& settings, QWidget* parent)
    : PreferencesDialog(settings, DetectPlatform(), HostSystemInfo().OsMajorVersion(), parent)
{
}

PreferencesDialog::PreferencesDialog(SettingsStore& settings, int platform, int osMajorVersion,
                                     QWidget* parent)
    : QDialog(parent), settings_(settings), smartphone_(platform == 1)
{
    setWindowTitle(LoadString(Str::PrefsTitle));

    slider_ = new QSlider(Qt::Horizontal);
    slider_->setObjectName(QStringLiteral("volumeSlider"));
    slider_->setRange(0, kVolumeMaxPercent);
    slider_->setPageStep(kVolumePageStep);
    slider_->setValue(static_cast<int>(settings_.GetVolumePercent()));
    percent_ = new QLabel(PercentText(slider_->value()));
    percent_->setObjectName(QStringLiteral("volumePercent"));

    DWORD powerOff = settings_.GetPowerOffTime();
    neverOff_ = new QRadioButton(LoadString(Str::PrefsScreenNeverOff));
    neverOff_->setObjectName(QStringLiteral("screenNeverOff"));
    offAfter_ = new QRadioButton(LoadString(Str::PrefsScreenOffAfter));
    offAfter_->setObjectName(QStringLiteral("screenOffAfter"));
    (powerOff == kPowerOffNever ? neverOff_ : offAfter_)->setChecked(true);

    if (smartphone_)
        BuildSmartphone(osMajorVersion >= kFirstOsWithPowerOff);
    else
        BuildPocketPc();

    // Connected only now, so that opening the dialog stores nothing.
    connect(slider_, &QSlider::valueChanged, this, &PreferencesDialog::OnSliderMoved);
    connect(powerOff_, &QComboBox::activated, offAfter_, [this] { offAfter_->setChecked(true); });
}

QComboBox* PreferencesDialog::MakePowerOffList()
{
    auto* list = new QComboBox;
    list->setObjectName(QStringLiteral("powerOffList"));
    NameForScreenReaders(list, LoadString(Str::PrefsScreenOffAfter));
    FillList(list, kPowerOffChoices, settings_.GetPowerOffTime());
    return list;
}

QWidget* PreferencesDialog::MakeListeningGroup()
{
    auto* group = new QGroupBox(LoadString(Str::PrefsListening));
    auto* layout = new QVBoxLayout(group);
    skipSilence_ = new QCheckBox(LoadString(Str::PrefsSkipSilence));
    skipSilence_->setObjectName(QStringLiteral("skipSilence"));
    skipSilence_->setChecked(settings_.GetSkipSilence() != 0);
    smartRewind_ = new QCheckBox(LoadString(Str::PrefsSmartRewind));
    smartRewind_->setObjectName(QStringLiteral("smartRewind"));
    smartRewind_->setChecked(settings_.GetSmartRewind() != 0);
    layout->addWidget(skipSilence_);
    layout->addWidget(smartRewind_);
    return group;
}

void PreferencesDialog::BuildPocketPc()
{
    powerOff_ = MakePowerOffList();

    auto* power = new QGroupBox(LoadString(Str::PrefsPowerConservation));
    auto* powerLayout = new QVBoxLayout(power);
    powerLayout->addWidget(neverOff_);
    powerLayout->addWidget(offAfter_);
    auto* listRow = new QHBoxLayout;
    listRow->addSpacing(20);
    listRow->addWidget(powerOff_);
    listRow->addStretch();
    powerLayout->addLayout(listRow);

    auto* volume = new QGroupBox(LoadString(Str::PrefsVolumeControl));
    auto* volumeLayout = new QHBoxLayout(volume);
    volumeLayout->addWidget(slider_, 1);
    volumeLayout->addWidget(percent_);

    auto* buttons = new QDialogButtonBox;
    QPushButton* ok = buttons->addButton(LoadString(Str::ButtonOk), QDialogButtonBox::AcceptRole);
    ok->setObjectName(QStringLiteral("okButton"));
    QPushButton* cancel = buttons->addButton(LoadString(Str::ButtonCancel), QDialogButtonBox::RejectRole);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    connect(buttons, &QDialogButtonBox::accepted, this, &PreferencesDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &PreferencesDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(power);
    layout->addWidget(volume);
    layout->addWidget(MakeListeningGroup());
    layout->addStretch();
    layout->addWidget(buttons);

    // A Pocket PC dialog covers the whole screen.
    setWindowState(windowState() | Qt::WindowMaximized);
    slider_->setFocus();
}

void PreferencesDialog::BuildSmartphone(bool showPowerOff)
{
    powerOffShown_ = showPowerOff;
    jumpBack_ = new QComboBox;
    jumpBack_->setObjectName(QStringLiteral("jumpBackList"));
    NameForScreenReaders(jumpBack_, LoadString(Str::PrefsJumpBack));
    FillList(jumpBack_, kJumpBackChoices, settings_.GetJumpBack());
    powerOff_ = MakePowerOffList();

    auto* content = new QVBoxLayout;
    content->addWidget(new QLabel(LoadString(Str::PrefsJumpBack)));
    content->addWidget(jumpBack_);

    auto* powerTitle = new QLabel(LoadString(Str::PrefsPowerConservation));
    powerTitle->setObjectName(QStringLiteral("powerOffLabel"));
    auto* powerText = new QLabel(LoadString(Str::PrefsScreenOffAfter));
    powerText->setObjectName(QStringLiteral("powerOffText"));
    powerText->setWordWrap(true);
    content->addSpacing(6);
    content->addWidget(powerTitle);
    content->addWidget(powerText);
    content->addWidget(powerOff_);
    powerTitle->setVisible(showPowerOff);
    powerText->setVisible(showPowerOff);
    powerOff_->setVisible(showPowerOff);

    // The Pocket PC's radio buttons stay in the dialog, hidden, so that a
    // stored "never" is kept.
    content->addWidget(neverOff_);
    content->addWidget(offAfter_);
    neverOff_->hide();
    offAfter_->hide();

    content->addSpacing(6);
    content->addWidget(new QLabel(LoadString(Str::PrefsVolumeControl)));
    auto* volumeRow = new QHBoxLayout;
    volumeRow->addWidget(slider_, 1);
    volumeRow->addWidget(percent_);
    content->addLayout(volumeRow);
    content->addWidget(MakeListeningGroup());
    content->addStretch();

    // The soft-key bar: "Done" on the left key.
    auto* bar = new QWidget;
    bar->setObjectName(QStringLiteral("softKeyBar"));
    bar->setAutoFillBackground(true);
    bar->setBackgroundRole(QPalette::Dark);
    auto* barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(4, 2, 4, 2);
    auto* done = new QPushButton(LoadString(Str::PrefsDone));
    done->setObjectName(QStringLiteral("doneButton"));
    done->setFlat(true);
    barLayout->addWidget(done);
    barLayout->addStretch();
    connect(done, &QPushButton::clicked, this, [this] { StoreAndClose(Command::PreferencesDone); });

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* margins = new QWidget;
    margins->setLayout(content);
    layout->addWidget(margins, 1);
    layout->addWidget(bar);

    jumpBack_->setFocus();
}

void PreferencesDialog::OnSliderMoved(int percent)
{
    settings_.SetVolumePercent(static_cast<DWORD>(percent));
    percent_->setText(PercentText(percent));
    if (auto* window = qobject_cast<MessageWindow*>(parentWidget()))
        window->PostCommand(Command::UpdateVolume);
}

void PreferencesDialog::accept()
{
    StoreAndClose(smartphone_ ? Command::PreferencesDone : IDOK);
}

void PreferencesDialog::reject()
{
    done(IDCANCEL);
}

void PreferencesDialog::StoreAndClose(int commandId)
{
    settings_.SetVolumePercent(static_cast<DWORD>(slider_->value()));
    settings_.SetSkipSilence(skipSilence_->isChecked() ? 1 : 0);
    settings_.SetSmartRewind(smartRewind_->isChecked() ? 1 : 0);
    if (powerOffShown_) {
        constexpr DWORD kNoSelection = 30;
        settings_.SetPowerOffTime(neverOff_->isChecked()
                                      ? kPowerOffNever
                                      : SelectedValue(powerOff_, kPowerOffChoices, kNoSelection));
    }
    if (smartphone_) {
        constexpr DWORD kNoSelection = 10;
        settings_.SetJumpBack(SelectedValue(jumpBack_, kJumpBackChoices, kNoSelection));
    }
    done(commandId);
}

} // namespace talvo
