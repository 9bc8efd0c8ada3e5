#include "app/PlainDisplay.h"

#include "app/StringTable.h"
#include "app/TimeText.h"
#include "playback/ProgramFile.h"

#include <QLabel>
#include <QVBoxLayout>

namespace talvo {

PlainDisplay::PlainDisplay(QWidget* parent)
    : QWidget(parent), title_(new QLabel(this)), position_(new QLabel(this)), total_(new QLabel(this)),
      section_(new QLabel(this)), volume_(new QLabel(this))
{
    auto* layout = new QVBoxLayout(this);
    QFont big = font();
    big.setPointSize(big.pointSize() * 2);
    big.setBold(true);
    title_->setWordWrap(true);
    title_->setAlignment(Qt::AlignCenter);
    title_->setFont(big);
    position_->setFont(big);
    for (QLabel* label : {position_, total_, section_, volume_})
        label->setAlignment(Qt::AlignCenter);
    title_->setObjectName(QStringLiteral("title"));
    position_->setObjectName(QStringLiteral("position"));
    total_->setObjectName(QStringLiteral("total"));
    section_->setObjectName(QStringLiteral("section"));
    volume_->setObjectName(QStringLiteral("volume"));
    layout->addStretch();
    layout->addWidget(title_);
    layout->addWidget(position_);
    layout->addWidget(total_);
    layout->addWidget(section_);
    layout->addWidget(volume_);
    layout->addStretch();
    Show(nullptr, 0, -1);
}

void PlainDisplay::Show(const ProgramFile* program, std::uint32_t positionMs, int volumePercent)
{
    if (program) {
        title_->setText(QString::fromStdU16String(program->GetTitle()));
        total_->setText(QString::asprintf(qPrintable(LoadString(Str::TotalTime)),
                                          static_cast<int>(program->DisplayLength() / 3600000),
                                          static_cast<int>(program->DisplayLength() / 60000 % 60),
                                          static_cast<int>(program->DisplayLength() / 1000 % 60)));
        ShowPosition(*program, positionMs);
    } else {
        title_->setText(LoadString(Str::NoPrograms));
        position_->setText(FormatHms(0));
        total_->clear();
        section_->clear();
        shownSection_ = shownSectionCount_ = 0;
    }
    volume_->setText(volumePercent >= 0 ? FormatString(Str::PrefsVolumePercent, volumePercent) : QString());
}

void PlainDisplay::ShowPosition(const ProgramFile& program, std::uint32_t positionMs)
{
    position_->setText(FormatHms(program.timeOffsetMs + positionMs));
    const int count = program.SectionCount();
    const int section = count > 0 ? program.CurrentSection() + 1 : 0;
    if (section != shownSection_ || count != shownSectionCount_) {
        shownSection_ = section;
        shownSectionCount_ = count;
        section_->setText(count > 0
                              ? QString::asprintf(qPrintable(LoadString(Str::SectionOf)), section, count)
                              : QString());
    }
}

void PlainDisplay::ShowPressed(std::uint16_t, bool pressed)
{
    // Without a skin there are no buttons to draw; a pressed control dims the position.
    position_->setEnabled(!pressed);
}

QString PlainDisplay::TitleText() const
{
    return title_->text();
}
QString PlainDisplay::PositionText() const
{
    return position_->text();
}
QString PlainDisplay::TotalText() const
{
    return total_->text();
}
QString PlainDisplay::SectionText() const
{
    return section_->text();
}
QString PlainDisplay::VolumeText() const
{
    return volume_->text();
}

} // namespace talvo
