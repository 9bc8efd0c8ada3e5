// Adding, editing and choosing bookmarks through their dialogs, with the main
// window and the real registry behind them.
#include "PlayerFixture.h"

#include "base/CommandIds.h"
#include "base/StringTable.h"
#include "library/BookmarkDialogs.h"

#include <QApplication>
#include <QLineEdit>
#include <QMenu>
#include <QTimer>
#include <QTreeWidget>

namespace talvo::test {
namespace {

class BookmarkDialogs : public PlayerFixture {
protected:
    // Runs fn on the modal dialog that the command opens, then lets it end.
    void withDialogOf(std::uint16_t command, const std::function<void(QDialog&)>& fn)
    {
        QTimer::singleShot(0, [&] {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            ASSERT_NE(dialog, nullptr);
            fn(*dialog);
        });
        frame_->SendCommand(command);
        pump();
    }

    // The bookmarks as the registry holds them now.
    std::vector<Bookmark> stored()
    {
        ProgramStateStore store(*registry_);
        ProgramFile fresh(current().path);
        EXPECT_EQ(fresh.ReadMetadata(), ZQX_OK);
        EXPECT_TRUE(fresh.Open(store));
        return fresh.bookmarks;
    }
};

TEST_F(BookmarkDialogs, AnAddedBookmarkIsInTheRegistryAtOnceAndCancelAddsNothing)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 120);
    startPlayer();
    current().Seek(42000);
    withDialogOf(Command::AddBookmark, [](QDialog& dialog) {
        auto* name = dialog.findChild<QLineEdit*>("bookmarkName");
        EXPECT_EQ(name->text(), "New Bookmark");
        name->setText("The storm");
        dialog.accept();
    });
    EXPECT_EQ(stored(), (std::vector<Bookmark>{{u"The storm", 42000}}));

    withDialogOf(Command::CreateBookmarkPressed, [](QDialog& dialog) { dialog.reject(); });
    EXPECT_EQ(stored().size(), 1u);

    // A new start lists it in the soft-key menu's bookmarks, by its time.
    frame_.reset();
    startPlayer();
    QMenu* bookmarks = nullptr;
    for (auto* menu : frame_->findChildren<QMenu*>()) {
        if (menu->title() == LoadString(Str::BookmarksTitle))
            bookmarks = menu;
    }
    ASSERT_NE(bookmarks, nullptr);
    emit bookmarks->aboutToShow();
    ASSERT_EQ(bookmarks->actions().size(), 1);
    EXPECT_EQ(bookmarks->actions()[0]->text(), QStringLiteral("00:00:42"));
    current().Seek(0);
    bookmarks->actions()[0]->trigger();
    EXPECT_EQ(current().Position(), 42000u);
}

TEST_F(BookmarkDialogs, TheListRebuildsTheBookmarksOnOkAndJumpsOnlyToASelectedRow)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 120);
    startPlayer();
    current().bookmarks = {{u"One", 10000}, {u"Two", 20000}, {u"Three", 30000}};
    current().Seek(5000);
    withDialogOf(Command::EditBookmarks, [](QDialog& dialog) {
        auto& list = static_cast<BookmarkListDialog&>(dialog);
        list.SelectRow(1);
        list.DeleteSelectedRow();
        list.findChild<QTreeWidget*>("bookmarkRows")->clearSelection();
        list.accept();
    });
    EXPECT_EQ(current().Position(), 5000u);
    EXPECT_EQ(stored(), (std::vector<Bookmark>{{u"One", 10000}, {u"Three", 30000}}));

    withDialogOf(Command::EditBookmarks, [](QDialog& dialog) {
        auto& list = static_cast<BookmarkListDialog&>(dialog);
        list.SelectRow(1);
        list.accept();
    });
    EXPECT_EQ(current().Position(), 30000u);

    // Every row deleted: no bookmarks left, and none stored.
    withDialogOf(Command::EditBookmarks, [](QDialog& dialog) {
        auto& list = static_cast<BookmarkListDialog&>(dialog);
        while (list.Rows().size() > 0) {
            list.SelectRow(0);
            list.DeleteSelectedRow();
        }
        list.accept();
    });
    EXPECT_TRUE(current().bookmarks.empty());
    EXPECT_TRUE(stored().empty());
}

TEST_F(BookmarkDialogs, ARenameToNothingIsRefusedAndTheRowKeepsItsName)
{
    BookmarkListDialog list({{u"Chapter", 1000}, {u"Chapter", 1000}}, false);
    // The dialog keeps equal rows; the next load drops the second.
    EXPECT_EQ(list.Rows().size(), 2u);
    list.SelectRow(0);
    QTimer::singleShot(0, [&] {
        auto* rename = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(rename, nullptr);
        rename->findChild<QLineEdit*>("bookmarkName")->clear();
        rename->accept();
        EXPECT_TRUE(rename->isVisible()); // still asking
        rename->findChild<QLineEdit*>("bookmarkName")->setText("Prologue");
        rename->accept();
    });
    list.RenameSelectedRow();
    const QStringList boxes = device_.messages();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_TRUE(boxes[0].contains("Please enter valid bookmark name."));
    EXPECT_EQ(list.Rows()[0].name, u"Prologue");
}

} // namespace
} // namespace talvo::test
