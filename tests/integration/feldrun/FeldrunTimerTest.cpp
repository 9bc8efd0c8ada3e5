// `feldrun --install-timer` and `--remove-timer`: the unit files they write
// and the calls they make to the user's service manager.  The machines tests
// run on have no user systemd, so a recording `systemctl` comes first on PATH;
// it answers as a missing user manager does when the test asks it to.
#include "FeldrunProcess.h"
#include "feldrun/UpdateTimer.h"
#include "tests/support/TestDevice.h"

#include <gtest/gtest.h>

namespace talvo::test {
namespace {

const QString kFeldrun = QStringLiteral(FELDRUN_PATH);

class FeldrunTimer : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_.set("XDG_CONFIG_HOME", device_.path("config"));
        QDir().mkpath(device_.path("bin"));
        QFile systemctl(device_.path("bin/systemctl"));
        ASSERT_TRUE(systemctl.open(QIODevice::WriteOnly));
        systemctl.write("#!/bin/sh\n"
                        "echo \"$*\" >> \"$(dirname \"$0\")/calls\"\n"
                        "if [ -e \"$(dirname \"$0\")/no-user-manager\" ]; then\n"
                        "  echo 'Failed to connect to bus: No medium found' >&2; exit 1\n"
                        "fi\n");
        systemctl.close();
        systemctl.setPermissions(systemctl.permissions() | QFile::ExeOwner);
        device_.set("PATH", device_.path("bin") + ":" + qEnvironmentVariable("PATH"));
    }

    int feldrun(const QStringList& arguments) { return RunFeldrun(arguments, output_); }

    QStringList calls() const
    {
        QFile file(device_.path("bin/calls"));
        return file.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)
                   : QStringList();
    }

    QString unit(const char* name) const
    {
        QFile file(device_.path("config/systemd/user/") + name);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    TestDevice device_;
    QString output_;
};

TEST_F(FeldrunTimer, InstallWritesBothUnitsAndStartsTheTimerAndRemoveTakesThemAway)
{
    ASSERT_EQ(feldrun({"--install-timer", "06:30"}), 0) << output_.toStdString();
    const QString service = unit(feldrun::kServiceUnitName);
    const QString feldrunPath = QFileInfo(kFeldrun).canonicalFilePath();
    EXPECT_TRUE(service.contains("\nExecStart=\"" + feldrunPath + "\" update\n")) << service.toStdString();
    // The timer's updates go to the Music folder and store feldrun was installed from.
    EXPECT_TRUE(service.contains("Environment=\"TALVOPLAYER_MUSIC=" + device_.path("music") + "\"\n"));
    EXPECT_TRUE(unit(feldrun::kTimerUnitName).contains("\nOnCalendar=*-*-* 06:30:00\n"));
    EXPECT_EQ(calls(), QStringList({"--user daemon-reload", "--user enable --now feldrun-update.timer"}));

    ASSERT_EQ(feldrun({"--remove-timer"}), 0) << output_.toStdString();
    EXPECT_FALSE(QFile::exists(device_.path("config/systemd/user/feldrun-update.timer")));
    EXPECT_FALSE(QFile::exists(device_.path("config/systemd/user/feldrun-update.service")));
    EXPECT_EQ(calls().mid(2),
              QStringList({"--user disable --now feldrun-update.timer", "--user daemon-reload"}));
    // Removing what is not there asks nothing of the service manager.
    EXPECT_EQ(feldrun({"--remove-timer"}), 0);
    EXPECT_EQ(calls().size(), 4);
}

TEST_F(FeldrunTimer, AWrongScheduleOrNoUserManagerIsToldAndLeavesNothingBehind)
{
    EXPECT_EQ(feldrun({"--install-timer", "24:00"}), 2);
    EXPECT_TRUE(output_.contains("daily, weekly or a time of day HH:MM, not '24:00'"))
        << output_.toStdString();
    EXPECT_EQ(feldrun({"--install-timer", "hourly"}), 2);
    EXPECT_TRUE(calls().isEmpty());

    QFile(device_.path("bin/no-user-manager")).open(QIODevice::WriteOnly);
    EXPECT_EQ(feldrun({"--install-timer"}), 1);
    EXPECT_TRUE(output_.contains("there is no user systemd to run the timer")) << output_.toStdString();
    EXPECT_TRUE(output_.contains("No medium found"));
    EXPECT_TRUE(QDir(device_.path("config/systemd/user")).isEmpty());

    // Without systemctl at all.
    device_.set("PATH", device_.path("empty"));
    EXPECT_EQ(feldrun({"--install-timer", "weekly"}), 1);
    EXPECT_TRUE(output_.contains("there is no systemctl")) << output_.toStdString();
    EXPECT_TRUE(QDir(device_.path("config/systemd/user")).isEmpty());
}

TEST(UpdateTimerUnits, SchedulesAndPathsAsSystemdReadsThem)
{
    EXPECT_EQ(feldrun::CalendarFor("daily"), "daily");
    EXPECT_EQ(feldrun::CalendarFor("weekly"), "weekly");
    EXPECT_EQ(feldrun::CalendarFor("00:00"), "*-*-* 00:00:00");
    EXPECT_EQ(feldrun::CalendarFor("23:59"), "*-*-* 23:59:00");
    for (const char* wrong : {"", "6:30", "06:60", "24:00", "06:30:00", "Daily", " 06:30"})
        EXPECT_FALSE(feldrun::CalendarFor(wrong)) << wrong;

    // Blanks, quotes, backslashes, % (a specifier) and $ (a variable in a command line).
    const QString service =
        feldrun::ServiceUnitText(R"(/opt/my "apps"\100%/$HOME/feldrun)", {"TALVOPLAYER_MUSIC=/m/50%$"});
    EXPECT_TRUE(service.contains(R"(ExecStart="/opt/my \"apps\"\\100%%/$$HOME/feldrun" update)"))
        << service.toStdString();
    EXPECT_TRUE(service.contains(R"(Environment="TALVOPLAYER_MUSIC=/m/50%%$")")) << service.toStdString();
    // Daily and weekly runs are spread over an hour; a time the listener chose is kept.
    EXPECT_TRUE(feldrun::TimerUnitText("daily", "daily").contains("RandomizedDelaySec="));
    EXPECT_FALSE(feldrun::TimerUnitText("*-*-* 06:30:00", "06:30").contains("RandomizedDelaySec="));
}

} // namespace
} // namespace talvo::test
