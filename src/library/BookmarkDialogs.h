#pragma once
// The bookmarks of the open program: the list, which shows, deletes and
// renames them and picks one to jump to, and the name dialog, which asks for a
// bookmark's name when one is added or renamed.
//
// Contract:
// - The list works on its own rows; the program's bookmarks are untouched
//   until the caller takes Rows() after OK (Cancel keeps them as they were).
// - Two layouts each, chosen by the device class: buttons on the touch layout,
//   a bottom bar with "Done" and "Menu" on the key layout.  Both work from the
//   keyboard alone: arrows in the list, Enter for OK, Escape for Cancel, Delete
//   deletes the selected row, F2 renames it.
#include "playback/ProgramFile.h"

#include <QDialog>
#include <optional>
#include <vector>

class QLabel;
class QLineEdit;
class QTreeWidget;

namespace talvo {

// The longest name the field takes.
inline constexpr int kMaxBookmarkNameChars = 260;

class BookmarkNameDialog final : public QDialog {
    Q_OBJECT
public:
    // captionId: "Add Bookmark" or "Rename Bookmark".  refuseEmpty: an empty
    // name is answered with "Please enter valid bookmark name." and the
    // dialog stays open (renaming refuses it; adding takes it).
    BookmarkNameDialog(int captionId, const QString& name, std::uint32_t timeMs, bool refuseEmpty,
                       QWidget* parent = nullptr);

    QString Name() const;
    void accept() override;

private:
    QLineEdit* name_;
    bool refuseEmpty_;
};

class BookmarkListDialog final : public QDialog {
    Q_OBJECT
public:
    // keyLayout: the layout of key-driven devices.
    BookmarkListDialog(const std::vector<Bookmark>& bookmarks, bool keyLayout, QWidget* parent = nullptr);

    // After OK: the rows in order, and the row selected, if any.
    std::vector<Bookmark> Rows() const;
    std::optional<int> ChosenRow() const { return chosen_; }

    void accept() override;
    void SelectRow(int row);
    void DeleteSelectedRow();
    // Asks for a new name for the selected row (the name dialog, refusing an
    // empty name).
    void RenameSelectedRow();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void addRow(const Bookmark& bookmark);
    void showSelected();

    QTreeWidget* rows_;
    QLabel* selectedName_ = nullptr; // key layout only
    QLabel* selectedTime_ = nullptr;
    std::optional<int> chosen_;
};

} // namespace talvo
