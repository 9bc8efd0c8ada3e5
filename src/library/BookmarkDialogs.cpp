#include "library/BookmarkDialogs.h"

#include "base/DialogButtons.h"
#include "base/StringTable.h"
#include "base/TimeText.h"
#include "platform/MessageBox.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace talvo {
namespace {

// Each row keeps its bookmark's time, which the time text only shows rounded.
constexpr int kTimeRole = Qt::UserRole;

} // namespace

BookmarkNameDialog::BookmarkNameDialog(int captionId, const QString& name, std::uint32_t timeMs,
                                       bool refuseEmpty, QWidget* parent)
    : QDialog(parent), name_(new QLineEdit(name)), refuseEmpty_(refuseEmpty)
{
    setWindowTitle(LoadString(captionId));
    auto* layout = new QVBoxLayout(this);
    auto* nameLabel = new QLabel(LoadString(Str::BookmarkNameLabel));
    name_->setObjectName(QStringLiteral("bookmarkName"));
    name_->setMaxLength(kMaxBookmarkNameChars);
    name_->setAccessibleName(LoadString(Str::BookmarkNameLabel));
    nameLabel->setBuddy(name_);
    auto* timeLabel = new QLabel(LoadString(Str::BookmarkTimeLabel));
    auto* time = new QLabel(FormatHms(timeMs));
    time->setObjectName(QStringLiteral("bookmarkTime"));
    time->setAccessibleName(LoadString(Str::BookmarkTimeLabel));
    timeLabel->setBuddy(time);
    layout->addWidget(nameLabel);
    layout->addWidget(name_);
    layout->addWidget(timeLabel);
    layout->addWidget(time);
    layout->addWidget(MakeDialogButtons(*this));
    name_->selectAll();
    name_->setFocus();
}

QString BookmarkNameDialog::Name() const
{
    return name_->text();
}

void BookmarkNameDialog::accept()
{
    if (refuseEmpty_ && name_->text().isEmpty()) {
        ShowMessageBox(this, LoadString(Str::InvalidBookmarkName), LoadString(Str::ErrorCaption),
                       kErrorBoxStyle);
        name_->setFocus();
        return;
    }
    QDialog::accept();
}

BookmarkListDialog::BookmarkListDialog(const std::vector<Bookmark>& bookmarks, bool keyLayout,
                                       QWidget* parent)
    : QDialog(parent), rows_(new QTreeWidget)
{
    setWindowTitle(LoadString(Str::BookmarksTitle));
    rows_->setObjectName(QStringLiteral("bookmarkRows"));
    rows_->setAccessibleName(LoadString(Str::BookmarksTitle));
    rows_->setRootIsDecorated(false);
    rows_->setColumnCount(2);
    rows_->setHeaderLabels({LoadString(Str::BookmarkNameColumn), LoadString(Str::BookmarkTimeColumn)});
    for (const Bookmark& bookmark : bookmarks)
        addRow(bookmark);
    rows_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(rows_, 1);

    if (keyLayout) {
        // The selected bookmark spelled out, and the keys on a bottom bar.
        selectedName_ = new QLabel;
        selectedTime_ = new QLabel;
        selectedName_->setObjectName(QStringLiteral("selectedName"));
        selectedTime_->setObjectName(QStringLiteral("selectedTime"));
        layout->addWidget(new QLabel(LoadString(Str::BookmarkNameLabel)));
        layout->addWidget(selectedName_);
        layout->addWidget(new QLabel(LoadString(Str::BookmarkTimeLabel)));
        layout->addWidget(selectedTime_);
        auto* bar = new QHBoxLayout;
        auto* done = new QPushButton(LoadString(Str::BookmarksDone));
        auto* menuKey = new QPushButton(LoadString(Str::BookmarksMenu));
        done->setObjectName(QStringLiteral("doneButton"));
        menuKey->setObjectName(QStringLiteral("menuButton"));
        auto* menu = new QMenu(menuKey);
        menu->addAction(LoadString(Str::BookmarksDeleteBookmark), this,
                        &BookmarkListDialog::DeleteSelectedRow);
        menu->addAction(LoadString(Str::BookmarksEditName), this, &BookmarkListDialog::RenameSelectedRow);
        menuKey->setMenu(menu);
        connect(done, &QPushButton::clicked, this, &BookmarkListDialog::accept);
        bar->addWidget(done);
        bar->addWidget(menuKey);
        layout->addLayout(bar);
        connect(rows_, &QTreeWidget::currentItemChanged, this, &BookmarkListDialog::showSelected);
    } else {
        auto* edit = new QHBoxLayout;
        auto* remove = new QPushButton(LoadString(Str::BookmarksDelete));
        auto* update = new QPushButton(LoadString(Str::BookmarksUpdate));
        remove->setObjectName(QStringLiteral("deleteButton"));
        update->setObjectName(QStringLiteral("updateButton"));
        connect(remove, &QPushButton::clicked, this, &BookmarkListDialog::DeleteSelectedRow);
        // Update takes a new name for the selected row, the list's one edit
        // besides deleting.
        connect(update, &QPushButton::clicked, this, &BookmarkListDialog::RenameSelectedRow);
        edit->addWidget(remove);
        edit->addWidget(update);
        layout->addLayout(edit);
        layout->addWidget(MakeDialogButtons(*this));
    }
    rows_->setFocus();
}

void BookmarkListDialog::addRow(const Bookmark& bookmark)
{
    auto* row = new QTreeWidgetItem(rows_);
    row->setText(0, QString::fromStdU16String(bookmark.name));
    row->setText(1, FormatHms(bookmark.timeMs));
    row->setData(0, kTimeRole, QVariant::fromValue<quint32>(bookmark.timeMs));
}

std::vector<Bookmark> BookmarkListDialog::Rows() const
{
    std::vector<Bookmark> rows;
    for (int i = 0; i < rows_->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* row = rows_->topLevelItem(i);
        rows.push_back({row->text(0).toStdU16String(), row->data(0, kTimeRole).value<quint32>()});
    }
    return rows;
}

void BookmarkListDialog::accept()
{
    QTreeWidgetItem* selected = rows_->currentItem();
    chosen_ = selected && selected->isSelected() ? std::optional<int>(rows_->indexOfTopLevelItem(selected))
                                                 : std::nullopt;
    QDialog::accept();
}

void BookmarkListDialog::SelectRow(int row)
{
    if (QTreeWidgetItem* item = rows_->topLevelItem(row))
        rows_->setCurrentItem(item);
    else
        rows_->setCurrentItem(nullptr);
}

void BookmarkListDialog::DeleteSelectedRow()
{
    delete rows_->currentItem();
    showSelected();
}

void BookmarkListDialog::RenameSelectedRow()
{
    QTreeWidgetItem* row = rows_->currentItem();
    if (!row)
        return;
    BookmarkNameDialog dialog(Str::RenameBookmarkCaption, row->text(0),
                              row->data(0, kTimeRole).value<quint32>(), true, this);
    if (dialog.exec() == QDialog::Accepted)
        row->setText(0, dialog.Name());
    showSelected();
}

void BookmarkListDialog::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Delete)
        DeleteSelectedRow();
    else if (event->key() == Qt::Key_F2)
        RenameSelectedRow();
    else
        QDialog::keyPressEvent(event);
}

void BookmarkListDialog::showSelected()
{
    if (!selectedName_)
        return;
    const QTreeWidgetItem* row = rows_->currentItem();
    selectedName_->setText(row ? row->text(0) : QString());
    selectedTime_->setText(row ? row->text(1) : QString());
}

} // namespace talvo
