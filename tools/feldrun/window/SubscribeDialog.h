#pragma once
// "Subscribe": a feed's address typed or pasted, or a file of subscriptions
// (OPML) chosen from the disk.

#include <QDialog>
#include <QUrl>

class QLineEdit;
class QLabel;
class QPushButton;

namespace feldrun {

class SubscribeDialog : public QDialog {
    Q_OBJECT
public:
    explicit SubscribeDialog(QWidget* parent = nullptr);

    // After Accepted: the feed's address, or empty when an OPML file was chosen.
    QUrl FeedUrl() const { return url_; }
    QString OpmlFile() const { return opmlFile_; }

    QLineEdit* AddressField() const { return address_; }

    // The address a listener typed, made whole ("example.org/feed" is
    // https://example.org/feed); invalid with why in error when it is not
    // an http or https address.
    static QUrl FeedAddress(const QString& typed, QString& error);

    void accept() override;

private:
    void ChooseOpmlFile();

    QLineEdit* address_;
    QLabel* problem_;
    QUrl url_;
    QString opmlFile_;
};

} // namespace feldrun
