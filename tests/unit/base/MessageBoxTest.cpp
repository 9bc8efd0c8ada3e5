#include "platform/MessageBox.h"
#include "base/ErrorBox.h"
#include "platform/Trace.h"

#include "tests/support/TestDevice.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

TEST(RecordedMessageBox, WritesOneLinePerBoxAndAnswersWithTheFirstButton)
{
    test::TestDevice device;
    EXPECT_EQ(ShowMessageBox(nullptr, QStringLiteral("Failed to open\nthe\tprogram C:\\a.zq"),
                             QStringLiteral("TalvoPlayer Error"), kErrorBoxStyle),
              IDOK);
    EXPECT_EQ(ShowMessageBox(nullptr, QStringLiteral("Delete?"), QString(), MB_OKCANCEL | MB_ICONQUESTION),
              IDOK);
    EXPECT_EQ(ShowMessageBox(nullptr, QStringLiteral("Sure?"), QStringLiteral("Q"), MB_YESNO), IDYES);

    QStringList lines = device.messages();
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines[0],
              QStringLiteral("TalvoPlayer Error\tFailed to open\\nthe\\tprogram C:\\\\a.zq\t0x50010"));
    EXPECT_EQ(lines[1], QStringLiteral("\tDelete?\t0x21"));
    EXPECT_EQ(lines[2], QStringLiteral("Q\tSure?\t0x4"));

    EXPECT_EQ(ShowErrorBox(nullptr, QStringLiteral("Low")), IDOK);
    EXPECT_EQ(device.messages().value(3), QStringLiteral("TalvoPlayer Error\tLow\t0x50010"));
}

QStringList traced;

void Capture(QtMsgType, const QMessageLogContext& context, const QString& text)
{
    if (QLatin1String(context.category) == QLatin1String("talvo.trace"))
        traced.append(text);
}

TEST(TraceText, IsFormattedButShownOnlyWhenTheCategoryIsOn)
{
    QtMessageHandler previous = qInstallMessageHandler(Capture);
    Trace("waveOutReset failed with error %d.", 5);
    EXPECT_TRUE(traced.isEmpty());

    QLoggingCategory::setFilterRules(QStringLiteral("talvo.trace.debug=true"));
    Trace("lineOpen failed with error 0x%x", 0x48010018u);
    QLoggingCategory::setFilterRules(QString());
    qInstallMessageHandler(previous);
    EXPECT_EQ(traced, QStringList{QStringLiteral("lineOpen failed with error 0x48010018")});
}

} // namespace
} // namespace talvo
