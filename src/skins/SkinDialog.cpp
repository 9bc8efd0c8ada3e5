#include "skins/SkinDialog.h"

#include "base/CommandIds.h"
#include "base/DialogButtons.h"
#include "base/StringTable.h"
#include "platform/MessageBox.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace talvo {

SkinDialog::SkinDialog(SkinList& skins, MessageWindow& window, bool keyLayout, QWidget* parent)
    : QDialog(parent), skins_(skins), window_(window)
{
    setWindowTitle(LoadString(Str::SkinsTitle));
    auto* layout = new QVBoxLayout(this);
    auto* label = new QLabel(LoadString(Str::SkinsInstalled));
    list_ = new QListWidget;
    list_->setObjectName(QStringLiteral("skinList"));
    label->setBuddy(list_);
    list_->setAccessibleName(LoadString(Str::SkinsInstalled));
    for (const auto& skin : skins_.Skins())
        list_->addItem(QString::fromStdU16String(skin->name));
    preview_ = new SkinPreview(skins_);
    preview_->setObjectName(QStringLiteral("skinPreview"));
    preview_->setAccessibleName(LoadString(Str::SkinsTitle));
    preview_->setMinimumHeight(keyLayout ? 120 : 200);
    layout->addWidget(label);
    layout->addWidget(list_, 1);
    layout->addWidget(preview_, 2);
    QDialogButtonBox* buttons = MakeDialogButtons(*this);
    layout->addWidget(buttons);
    if (keyLayout) {
        // The smaller layout of key-driven devices: less room around the list.
        layout->setContentsMargins(4, 4, 4, 4);
        layout->setSpacing(2);
    }
    connect(list_, &QListWidget::currentRowChanged, preview_, &SkinPreview::SetSkinIndex);
    Select(skins_.ActiveIndex());
    list_->setFocus();
}

int SkinDialog::SelectedIndex() const
{
    return list_->currentRow();
}

void SkinDialog::Select(int index)
{
    list_->setCurrentRow(index);
    preview_->SetSkinIndex(index);
}

void SkinDialog::accept()
{
    const int index = SelectedIndex();
    if (index >= 0 && index < int(skins_.Skins().size())) {
        skins_.SetActiveSkin(skins_.Skins()[std::size_t(index)]->name);
        window_.PostCommand(Command::ResetSkin);
    }
    done(IDOK);
}

void SkinDialog::reject()
{
    done(IDCANCEL);
}

void SkinPreview::SetSkinIndex(int index)
{
    index_ = index;
    update();
}

void SkinPreview::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), palette().color(QPalette::Base));
    if (index_ < 0 || index_ >= int(skins_.Skins().size()))
        return;
    SkinLayout& skin = *skins_.Skins()[std::size_t(index_)];
    if (!skin.IsLayoutLoaded())
        skin.LoadLayout(skins_.Screen());
    else
        skin.DecodeBitmap(SkinBitmap::Background);
    const QImage& picture = skin.Bitmap(SkinBitmap::Background);
    if (picture.isNull() || height() <= 0)
        return;
    // Scaled to the full height; a preview narrower than that cuts both sides.
    const double factor = double(picture.height()) / height();
    const int width = int(picture.width() / factor);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRect((this->width() - width) / 2, 0, width, height()), picture);
}

} // namespace talvo
