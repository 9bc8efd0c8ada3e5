#pragma once
// The program list: the modal dialog in which the listener picks the program
// to listen to, refreshes the library, deletes a program, opens a program's
// details and starts the download application.  Titled "Local Library".
//
// Three layouts:
// - 109 (Pocket PC, upright screen): the free-space header and the list in
//   the group "Audio Programs", the buttons "Refresh", "Delete" and "Audio
//   Program Properties" below it, then "Listen" and "Close".
// - 223 (Pocket PC, screen wider than high): the same controls, the buttons
//   in a column beside the list.
// - 119 (Smartphone): the header and the list only; a bottom bar whose left
//   key "Listen" takes the program and whose right key "Menu" holds
//   "Feldrun", "Refresh List", "Delete Title" and "Close".
//
// Contract:
// - Opening fills the list as Refresh does: the library is emptied and
//   searched again with the wait cursor shown, then the current program's row
//   is selected, focused and scrolled into view.  The caller stops playback
//   first, since the search closes the open program.
// - Delete is enabled only while the listener has a row selected; after a
//   deletion the first row is selected when nothing is, and Delete stays
//   disabled until the listener selects again (a tap on a row or Space).
// - Listen (also Enter, or a double click on a row) makes the row's program
//   current and ends the dialog with IDOK; Close and Escape end it with
//   IDCANCEL.  The Delete key deletes, after the same question.
#include <QDialog>
#include <QSize>
#include <memory>

class QLabel;
class QPushButton;
class QTreeWidget;
class QAction;

namespace talvo {

class ProgramLibrary;
class ProgramList;

inline constexpr int kListTemplatePocketPc = 109;
inline constexpr int kListTemplatePocketPcWide = 223;
inline constexpr int kListTemplateSmartphone = 119;

// The layout for a platform (1 Smartphone, 0 Pocket PC, as DetectPlatform
// answers) and a screen.
int ProgramListTemplate(int platform, QSize screen);

// What RunProgramList answers when the listener closes the list.
inline constexpr int kProgramListCancelled = -1;

// Shows the list of this system's layout modally.  Returns the library index
// of the program taken over, or kProgramListCancelled.
int RunProgramList(ProgramLibrary& library, const QString& applicationFolder, QWidget* parent);

class ProgramListDialog : public QDialog {
    Q_OBJECT
public:
    ProgramListDialog(ProgramLibrary& library, const QString& applicationFolder, int templateId,
                      QWidget* parent = nullptr);
    ~ProgramListDialog() override;

    // The commands, as the buttons and the soft-key menu run them.
    void Refresh();
    void DeleteSelected();
    void ShowDetails();
    void Feldrun();
    void Listen();
    void reject() override;

    // The selected row, -1 when none.
    int SelectedRow() const;
    void SelectRow(int row);
    bool IsDeleteEnabled() const;
    int TemplateId() const { return templateId_; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void BuildPocketPc(bool wide);
    void BuildSmartphone();
    void Fill(int selectRow);
    void OnSelectionChanged();
    void UpdateHeader();

    ProgramLibrary& library_;
    std::unique_ptr<ProgramList> list_;
    QString applicationFolder_;
    int templateId_;
    QTreeWidget* view_ = nullptr;
    QLabel* header_ = nullptr;
    QPushButton* deleteButton_ = nullptr;
    QAction* deleteAction_ = nullptr;
    bool deleteEnabled_ = false;
    // Set while the dialog itself changes the selection.
    bool selecting_ = false;
};

} // namespace talvo
