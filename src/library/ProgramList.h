#pragma once
// The program list's work without its widgets: the rows it shows, refreshing,
// deleting with the listener's confirmation, taking a program over as the
// current one, the free-space header and starting the download application.
// The dialog (ProgramListDialog) only shows what this answers.
//
// Contract:
// - Rows follow the library's order; row n is entry n after every refill.
// - Each row remembers its program's path, and every action finds the entry
//   again by that path.  While the dialog is open other requests (a desktop
//   sync deletion, a card taken out) may change the library; an action on a
//   row whose program is no longer listed touches no file, and the rows are
//   read again from the library as it now is.
// - All calls happen on the user-interface thread.
#include <QString>
#include <cstdint>
#include <vector>

class QWidget;

namespace talvo {

class ProgramFile;
class ProgramLibrary;

// The longest row text shown; a longer title is cut, so that a damaged or
// hostile title cannot make the list or the confirmation unusable.
inline constexpr int kMaxRowTextLength = 260;

struct ProgramRow {
    QString text; // the title as shown
    QString path; // the program file it stands for
};

class ProgramList {
public:
    enum class DeleteResult {
        Deleted,   // file, side file and entry gone; the row removed
        Cancelled, // the listener did not confirm
        Failed,    // the program file could not be deleted (a box said why)
        Gone,      // the row's program was no longer listed; the rows were read again
    };

    explicit ProgramList(ProgramLibrary& library);

    // Empties the library and discovers again (which reopens "Last Program",
    // or the first program); then one row per entry.  Returns the row of the
    // current program, or -1 when there is none.
    int Refill();
    // The rows of the library as it is now, without a new search.
    void ReadRows();

    const std::vector<ProgramRow>& Rows() const { return rows_; }
    // The library index of the row's program, -1 when the row is outside the
    // list or its program is no longer listed.
    std::int32_t IndexOfRow(int row) const;

    // Asks "Are you sure you want to delete the program '%s'?" (OK/Cancel) and
    // on OK deletes the program through the library.
    DeleteResult DeleteRow(int row, QWidget* owner);
    // Makes the row's program the current one.  False when it is no longer listed.
    bool TakeOver(int row);

    // "On Device%s\r\n%s of %s" for the storage the row's program lives on
    // (main memory, or a card with its name), free space of total; with no
    // row, main memory's.
    QString FreeSpaceHeader(int row, const QString& homeFolder) const;

private:
    ProgramLibrary& library_;
    std::vector<ProgramRow> rows_;
};

// A title made fit for one row: control characters become blanks, broken
// UTF-16 becomes U+FFFD, an over-long text is cut with an ellipsis; an empty
// title shows the file's name instead, so that every row can be told apart.
QString RowTextOf(const ProgramFile& program);

// Main memory: TALVOPLAYER_HOME, or the user's home folder.
QString MainMemoryFolder();

// The download application: "%s/Feldrun" in the program's own folder (a
// trailing separator of the folder is dropped first).
QString FeldrunPath(const QString& applicationFolder);
// Starts it detached, with no arguments; when it cannot be started shows
// "Failed to launch Feldrun.  Please reinstall" and returns false.
bool LaunchFeldrun(const QString& applicationFolder, QWidget* owner);

} // namespace talvo
