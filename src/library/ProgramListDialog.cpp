#include "library/ProgramListDialog.h"

#include "base/DetectPlatform.h"
#include "base/StringTable.h"
#include "library/ProgramDetailsDialog.h"
#include "library/ProgramLibrary.h"
#include "library/ProgramList.h"
#include "platform/MessageBox.h"
#include "playback/ProgramFile.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace talvo {
namespace {

// What DetectPlatform answers on a Smartphone.
constexpr int kSmartphonePlatform = 1;
// The list's one column is this wide once it is filled.
constexpr int kColumnWidth = 320;
// The list's font: 14 pixels high, bold.
constexpr int kListFontPixels = 14;

class WaitCursor {
public:
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
};

QPushButton* MakeButton(int textId, const char* name)
{
    auto* button = new QPushButton(LoadString(textId));
    button->setObjectName(QString::fromLatin1(name));
    button->setAccessibleName(LoadString(textId));
    return button;
}

} // namespace

int ProgramListTemplate(int platform, QSize screen)
{
    if (platform == kSmartphonePlatform)
        return kListTemplateSmartphone;
    return screen.width() > screen.height() ? kListTemplatePocketPcWide : kListTemplatePocketPc;
}

int RunProgramList(ProgramLibrary& library, const QString& applicationFolder, QWidget* parent)
{
    const QScreen* screen = parent && parent->screen() ? parent->screen() : QGuiApplication::primaryScreen();
    const QSize size = screen ? screen->size() : QSize();
    ProgramListDialog dialog(library, applicationFolder, ProgramListTemplate(DetectPlatform(), size), parent);
    if (dialog.exec() != IDOK)
        return kProgramListCancelled;
    return library.CurrentIndex();
}

ProgramListDialog::ProgramListDialog(ProgramLibrary& library, const QString& applicationFolder,
                                     int templateId, QWidget* parent)
    : QDialog(parent), library_(library), list_(std::make_unique<ProgramList>(library)),
      applicationFolder_(applicationFolder), templateId_(templateId)
{
    setObjectName(QStringLiteral("programListDialog"));
    // The templates carry "Select Your Audio Program"; the list always shows
    // "Local Library" instead, and a screen reader hears both.
    setWindowTitle(LoadString(Str::ListTitle));
    setAccessibleName(LoadString(Str::ListTitle));
    setAccessibleDescription(LoadString(Str::ListCaption));

    view_ = new QTreeWidget;
    view_->setObjectName(QStringLiteral("programList"));
    view_->setAccessibleName(LoadString(Str::ListColumn));
    view_->setColumnCount(1);
    view_->setHeaderLabels({LoadString(Str::ListColumn)});
    view_->setRootIsDecorated(false);
    view_->setUniformRowHeights(true);
    view_->setSelectionMode(QAbstractItemView::SingleSelection);
    view_->setTextElideMode(Qt::ElideRight);
    view_->header()->setStretchLastSection(false);
    QFont font = view_->font();
    font.setPixelSize(kListFontPixels);
    font.setBold(true);
    view_->setFont(font);

    header_ = new QLabel;
    header_->setObjectName(QStringLiteral("freeSpaceHeader"));
    header_->setTextFormat(Qt::PlainText);

    if (templateId_ == kListTemplateSmartphone)
        BuildSmartphone();
    else
        BuildPocketPc(templateId_ == kListTemplatePocketPcWide);

    connect(view_, &QTreeWidget::itemSelectionChanged, this, &ProgramListDialog::OnSelectionChanged);
    // Pressing the row that is already selected chooses it too, so that the
    // one row left after a deletion can be chosen by a tap or from the keyboard.
    connect(view_, &QTreeWidget::itemPressed, this, &ProgramListDialog::OnSelectionChanged);
    view_->installEventFilter(this);
    // Enter reaches keyPressEvent; a double click takes the row as Listen does.
    connect(view_, &QTreeWidget::itemDoubleClicked, this, [this] { Listen(); });
    Refresh();
    view_->setFocus();
}

ProgramListDialog::~ProgramListDialog() = default;

void ProgramListDialog::BuildPocketPc(bool wide)
{
    auto* group = new QGroupBox(LoadString(Str::ListGroup));
    group->setObjectName(QStringLiteral("programGroup"));
    auto* groupLayout = new QVBoxLayout(group);
    groupLayout->addWidget(header_);
    groupLayout->addWidget(view_, 1);

    QPushButton* refresh = MakeButton(Str::ListRefresh, "refreshButton");
    deleteButton_ = MakeButton(Str::ListDelete, "deleteButton");
    QPushButton* properties = MakeButton(Str::ListProperties, "propertiesButton");
    connect(refresh, &QPushButton::clicked, this, &ProgramListDialog::Refresh);
    connect(deleteButton_, &QPushButton::clicked, this, &ProgramListDialog::DeleteSelected);
    connect(properties, &QPushButton::clicked, this, &ProgramListDialog::ShowDetails);

    auto* closing = new QDialogButtonBox;
    QPushButton* listen = MakeButton(Str::ListListen, "listenButton");
    QPushButton* close = MakeButton(Str::ListClose, "closeButton");
    closing->addButton(listen, QDialogButtonBox::AcceptRole);
    closing->addButton(close, QDialogButtonBox::RejectRole);
    connect(listen, &QPushButton::clicked, this, &ProgramListDialog::Listen);
    connect(close, &QPushButton::clicked, this, &ProgramListDialog::reject);

    auto* layout = new QVBoxLayout(this);
    if (wide) {
        auto* row = new QHBoxLayout;
        row->addWidget(group, 1);
        auto* column = new QVBoxLayout;
        column->addWidget(refresh);
        column->addWidget(deleteButton_);
        column->addWidget(properties);
        column->addStretch();
        row->addLayout(column);
        layout->addLayout(row, 1);
    } else {
        layout->addWidget(group, 1);
        auto* row = new QHBoxLayout;
        row->addWidget(refresh);
        row->addWidget(deleteButton_);
        row->addWidget(properties);
        layout->addLayout(row);
    }
    layout->addWidget(closing);
    // A Pocket PC dialog covers the whole screen.
    setWindowState(windowState() | Qt::WindowMaximized);
}

void ProgramListDialog::BuildSmartphone()
{
    // The soft-key bar: "Listen" on the left key, the menu on the right.
    auto* bar = new QWidget;
    bar->setObjectName(QStringLiteral("softKeyBar"));
    bar->setAutoFillBackground(true);
    bar->setBackgroundRole(QPalette::Dark);
    auto* barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(4, 2, 4, 2);
    QPushButton* listen = MakeButton(Str::ListListen, "listenButton");
    listen->setFlat(true);
    QPushButton* menuKey = MakeButton(Str::ListMenu, "menuButton");
    menuKey->setFlat(true);
    barLayout->addWidget(listen);
    barLayout->addStretch();
    barLayout->addWidget(menuKey);
    connect(listen, &QPushButton::clicked, this, &ProgramListDialog::Listen);

    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("listMenu"));
    menu->setAccessibleName(LoadString(Str::ListMenu));
    connect(menu->addAction(LoadString(Str::ListFeldrun)), &QAction::triggered, this,
            &ProgramListDialog::Feldrun);
    connect(menu->addAction(LoadString(Str::ListRefreshList)), &QAction::triggered, this,
            &ProgramListDialog::Refresh);
    deleteAction_ = menu->addAction(LoadString(Str::ListDeleteTitle));
    connect(deleteAction_, &QAction::triggered, this, &ProgramListDialog::DeleteSelected);
    connect(menu->addAction(LoadString(Str::ListClose)), &QAction::triggered, this,
            &ProgramListDialog::reject);
    menuKey->setMenu(menu);

    auto* content = new QVBoxLayout;
    content->addWidget(header_);
    content->addWidget(view_, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* margins = new QWidget;
    margins->setLayout(content);
    layout->addWidget(margins, 1);
    layout->addWidget(bar);
}

void ProgramListDialog::Refresh()
{
    int row;
    {
        WaitCursor wait;
        row = list_->Refill();
    }
    Fill(row);
}

void ProgramListDialog::Fill(int selectRow)
{
    selecting_ = true;
    view_->clear();
    const std::vector<ProgramRow>& rows = list_->Rows();
    QList<QTreeWidgetItem*> items;
    items.reserve(static_cast<qsizetype>(rows.size()));
    for (const ProgramRow& row : rows)
        items.append(new QTreeWidgetItem(QStringList{row.text}));
    if (items.isEmpty()) {
        // Shown, never chosen: Delete and Listen have nothing to act on.
        auto* none = new QTreeWidgetItem(QStringList{LoadString(Str::NoPrograms)});
        none->setFlags(Qt::ItemIsEnabled);
        items.append(none);
    }
    view_->addTopLevelItems(items);
    view_->setColumnWidth(0, kColumnWidth);
    selecting_ = false;
    if (selectRow >= 0 && selectRow < static_cast<int>(rows.size()))
        SelectRow(selectRow);
    else
        OnSelectionChanged();
}

int ProgramListDialog::SelectedRow() const
{
    const QList<QTreeWidgetItem*> selected = view_->selectedItems();
    if (selected.isEmpty() || list_->Rows().empty())
        return -1;
    return view_->indexOfTopLevelItem(selected.front());
}

void ProgramListDialog::SelectRow(int row)
{
    QTreeWidgetItem* item = view_->topLevelItem(row);
    if (!item || list_->Rows().empty())
        return;
    view_->setCurrentItem(item);
    item->setSelected(true);
    view_->scrollToItem(item);
}

bool ProgramListDialog::IsDeleteEnabled() const
{
    return deleteEnabled_;
}

void ProgramListDialog::OnSelectionChanged()
{
    if (selecting_)
        return;
    deleteEnabled_ = SelectedRow() >= 0;
    if (deleteButton_)
        deleteButton_->setEnabled(deleteEnabled_);
    if (deleteAction_)
        deleteAction_->setEnabled(deleteEnabled_);
    UpdateHeader();
}

void ProgramListDialog::UpdateHeader()
{
    const QString text = list_->FreeSpaceHeader(SelectedRow(), MainMemoryFolder());
    header_->setText(QString(text).replace(QStringLiteral("\r\n"), QStringLiteral("\n")));
    header_->setAccessibleName(header_->text());
}

void ProgramListDialog::DeleteSelected()
{
    const int row = SelectedRow();
    if (row < 0 || !deleteEnabled_)
        return;
    switch (list_->DeleteRow(row, this)) {
    case ProgramList::DeleteResult::Cancelled:
    case ProgramList::DeleteResult::Failed:
        return;
    case ProgramList::DeleteResult::Gone:
        Fill(library_.CurrentIndex());
        return;
    case ProgramList::DeleteResult::Deleted:
        break;
    }
    if (static_cast<int>(list_->Rows().size()) == view_->topLevelItemCount() - 1) {
        // A deleted row takes the selection with it; the view would otherwise
        // pass it on to the row that becomes current.
        selecting_ = true;
        view_->clearSelection();
        delete view_->takeTopLevelItem(row);
        view_->clearSelection();
        selecting_ = false;
        if (list_->Rows().empty())
            Fill(-1);
    } else {
        Fill(-1);
    }
    if (SelectedRow() < 0 && !list_->Rows().empty())
        SelectRow(0);
    // Selected by the list, not by the listener: Delete waits for a choice.
    deleteEnabled_ = false;
    if (deleteButton_)
        deleteButton_->setEnabled(false);
    if (deleteAction_)
        deleteAction_->setEnabled(false);
    UpdateHeader();
}

void ProgramListDialog::ShowDetails()
{
    const std::int32_t index = list_->IndexOfRow(SelectedRow());
    if (index >= 0)
        ShowProgramDetails(library_.At(index), applicationFolder_, this);
}

void ProgramListDialog::Feldrun()
{
    LaunchFeldrun(applicationFolder_, this);
}

void ProgramListDialog::Listen()
{
    const int row = SelectedRow();
    if (row < 0)
        return;
    bool taken;
    {
        WaitCursor wait;
        taken = list_->TakeOver(row);
    }
    if (!taken) {
        Fill(library_.CurrentIndex());
        return;
    }
    hide();
    done(IDOK);
}

void ProgramListDialog::reject()
{
    done(IDCANCEL);
}

bool ProgramListDialog::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == view_ && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Space && view_->currentItem()) {
        view_->currentItem()->setSelected(true);
        OnSelectionChanged();
        return true;
    }
    return QDialog::eventFilter(watched, event);
}

void ProgramListDialog::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Delete:
        DeleteSelected();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        Listen();
        return;
    default:
        QDialog::keyPressEvent(event);
    }
}

} // namespace talvo
