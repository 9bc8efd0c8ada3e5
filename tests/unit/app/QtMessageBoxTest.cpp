#include "platform/MessageBox.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QMessageBox>
#include <QTimer>
#include <gtest/gtest.h>

namespace talvo {
namespace {

struct SeenBox {
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    bool topMost = false;
    QString caption;
    QString text;
    Qt::TextFormat format = Qt::AutoText;
    QStringList buttons;
};

// Shows a real box and, once it is up, looks at it and presses `press`.
int ShowAndPress(MessageBoxStyle style, QMessageBox::StandardButton press, SeenBox* seen, const char* shot)
{
    QTimer::singleShot(0, [=] {
        QMessageBox* box = nullptr;
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* candidate = qobject_cast<QMessageBox*>(w); candidate && candidate->isVisible())
                box = candidate;
        }
        if (!box)
            return;
        seen->icon = box->icon();
        seen->topMost = box->windowFlags().testFlag(Qt::WindowStaysOnTopHint);
        seen->caption = box->windowTitle();
        seen->text = box->text();
        seen->format = box->textFormat();
        for (QAbstractButton* b : box->buttons())
            seen->buttons.append(b->text().remove(QLatin1Char('&')));
        seen->buttons.sort();
        QString dir = qEnvironmentVariable("TALVO_SCREENSHOT_DIR");
        if (!dir.isEmpty()) {
            QDir().mkpath(dir);
            box->grab().save(QDir(dir).filePath(QString::fromLatin1(shot)));
        }
        box->button(press)->click();
    });
    return ShowMessageBox(nullptr, QStringLiteral("Failed to open the program /a.zq. Error -3."),
                          QStringLiteral("TalvoPlayer Error"), style);
}

TEST(QtMessageBoxTest, ShowsTheStyleAndAnswersWithThePressedButton)
{
    qunsetenv("TALVOPLAYER_MESSAGES");
    SeenBox error;
    EXPECT_EQ(ShowAndPress(kErrorBoxStyle, QMessageBox::Ok, &error, "messagebox-error.png"), IDOK);
    EXPECT_EQ(error.icon, QMessageBox::Critical);
    EXPECT_TRUE(error.topMost);
    EXPECT_EQ(error.caption, QStringLiteral("TalvoPlayer Error"));
    // Titles and paths in the text may look like markup; they are shown as written.
    EXPECT_EQ(error.format, Qt::PlainText);
    EXPECT_EQ(error.buttons, QStringList{QStringLiteral("OK")});

    SeenBox question;
    EXPECT_EQ(ShowAndPress(MB_OKCANCEL | MB_ICONQUESTION, QMessageBox::Cancel, &question,
                           "messagebox-okcancel.png"),
              IDCANCEL);
    EXPECT_EQ(question.icon, QMessageBox::Question);
    EXPECT_FALSE(question.topMost);
    EXPECT_EQ(question.buttons.size(), 2);

    SeenBox yesNo;
    EXPECT_EQ(ShowAndPress(MB_YESNO | MB_ICONWARNING, QMessageBox::No, &yesNo, "messagebox-yesno.png"), IDNO);
    EXPECT_EQ(yesNo.icon, QMessageBox::Warning);
    EXPECT_EQ(yesNo.buttons, (QStringList{QStringLiteral("No"), QStringLiteral("Yes")}));
}

} // namespace
} // namespace talvo
