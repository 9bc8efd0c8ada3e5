#pragma once
// The main screen without a skin: the program's title, its position and total
// time, the section, and the volume indicator while it is shown.
#include <QWidget>
#include <cstdint>

class QLabel;

namespace talvo {

class ProgramFile;

class PlainDisplay final : public QWidget {
    Q_OBJECT
public:
    explicit PlainDisplay(QWidget* parent = nullptr);

    // volumePercent < 0 hides the volume indicator.
    void Show(const ProgramFile* program, std::uint32_t positionMs, int volumePercent);
    // Only the position and the section, for a program already shown.
    void ShowPosition(const ProgramFile& program, std::uint32_t positionMs);
    void ShowPressed(std::uint16_t command, bool pressed);

    QString TitleText() const;
    QString PositionText() const;
    QString TotalText() const;
    QString SectionText() const;
    QString VolumeText() const;

private:
    QLabel* title_;
    QLabel* position_;
    QLabel* total_;
    QLabel* section_;
    QLabel* volume_;
    int shownSection_ = 0; // one-based; 0 with no sections
    int shownSectionCount_ = 0;
};

} // namespace talvo
