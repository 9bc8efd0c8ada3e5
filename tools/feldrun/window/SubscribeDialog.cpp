#include "SubscribeDialog.h"

#include "feldrun/SubscriptionCommands.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace feldrun {

SubscribeDialog::SubscribeDialog(QWidget* parent)
    : QDialog(parent), address_(new QLineEdit(this)), problem_(new QLabel(this))
{
    setWindowTitle(tr("Subscribe"));
    setObjectName(QStringLiteral("subscribeDialog"));
    auto* label = new QLabel(tr("&Address of the podcast or programme feed:"), this);
    label->setBuddy(address_);
    address_->setObjectName(QStringLiteral("feedAddress"));
    address_->setAccessibleName(tr("Feed address"));
    address_->setPlaceholderText(QStringLiteral("https://example.org/feed.xml"));
    address_->setMinimumWidth(address_->fontMetrics().averageCharWidth() * 48);
    problem_->setObjectName(QStringLiteral("subscribeProblem"));
    problem_->setAccessibleName(tr("Problem"));
    problem_->setWordWrap(true);
    problem_->hide();

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    QPushButton* subscribe = buttons->button(QDialogButtonBox::Ok);
    subscribe->setText(tr("&Subscribe"));
    subscribe->setAccessibleName(tr("Subscribe"));
    subscribe->setDefault(true);
    buttons->button(QDialogButtonBox::Cancel)->setAccessibleName(tr("Cancel"));
    QPushButton* opml = buttons->addButton(tr("From an &OPML file…"), QDialogButtonBox::ActionRole);
    opml->setObjectName(QStringLiteral("opmlButton"));
    opml->setAccessibleName(tr("Subscribe from an OPML file"));
    opml->setAutoDefault(false);
    connect(buttons, &QDialogButtonBox::accepted, this, &SubscribeDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &SubscribeDialog::reject);
    connect(opml, &QPushButton::clicked, this, &SubscribeDialog::ChooseOpmlFile);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(address_);
    layout->addWidget(problem_);
    layout->addWidget(buttons);
    address_->setFocus();
}

QUrl SubscribeDialog::FeedAddress(const QString& typed, QString& error)
{
    QString text = typed.trimmed();
    if (text.isEmpty()) {
        error = tr("Type or paste the address of a feed.");
        return {};
    }
    // An address copied from a browser's bar often comes without its scheme.
    if (!text.contains(QLatin1String("://")))
        text.prepend(QLatin1String("https://"));
    return feldrun::FeedUrl(text, error).value_or(QUrl());
}

void SubscribeDialog::accept()
{
    QString error;
    url_ = FeedAddress(address_->text(), error);
    if (!url_.isValid()) {
        problem_->setText(error);
        problem_->show();
        address_->setFocus();
        return;
    }
    QDialog::accept();
}

void SubscribeDialog::ChooseOpmlFile()
{
    const QString file = QFileDialog::getOpenFileName(this, tr("Subscriptions from an OPML file"), QString(),
                                                      tr("OPML files (*.opml *.xml);;All files (*)"));
    if (file.isEmpty())
        return;
    opmlFile_ = file;
    url_.clear();
    QDialog::accept();
}

} // namespace feldrun
