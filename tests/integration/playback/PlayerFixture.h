#pragma once
// A whole player in a temporary device: program files made with the SDK's
// writer in Music/Author/Title folders, the real registry, and a main window
// on a wave output the test chooses.
#include "app/CMainFrame.h"
#include "platform/FileNames.h"
#include "platform/null/ManualWaveOut.h"
#include "platform/null/NullWaveOut.h"
#include "playback/ProgramFile.h"
#include "settings/SettingsStore.h"
#include "tests/support/TestDevice.h"
#include "zqx/zqxwriter.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

namespace talvo::test {

// The shape of a generated type-5 program.  Sample i of second s holds
// base + s * 7 + i % 5 on every channel, so that any misplaced block shows up
// in a comparison and programs made with different bases tell apart.
struct PcmShape {
    std::uint32_t rate = 1000;
    std::uint16_t channels = 1;
    std::int16_t base = 0;
};

// A type-5 program in one-second packets, so every position a seek can reach
// is a whole second.
inline QString WritePcmProgram(const QString& path, const std::string& id, int seconds,
                               const std::vector<std::uint32_t>& sectionStartsMs = {}, PcmShape shape = {})
{
    // By its bytes, so that a folder whose name is not UTF-8 can be made.
    std::filesystem::create_directories(EncodeFileName(QFileInfo(path).absolutePath()).toStdString());
    CZQXWriter writer;
    EXPECT_EQ(writer.Create(EncodeFileName(path).toStdString(), ZQX_TYPE_PCM16, shape.rate, shape.channels),
              ZQX_OK);
    writer.SetProgramId(id);
    writer.SetTitle("Program " + id);
    for (std::size_t i = 0; i < sectionStartsMs.size(); ++i)
        writer.AddSection(sectionStartsMs[i], "Section " + std::to_string(i + 1));
    std::vector<std::int16_t> second(std::size_t{shape.rate} * shape.channels);
    for (int s = 0; s < seconds; ++s) {
        for (std::size_t i = 0; i < second.size(); ++i)
            second[i] =
                static_cast<std::int16_t>(shape.base + s * 7 + static_cast<int>(i / shape.channels % 5));
        EXPECT_EQ(writer.AddPacket(reinterpret_cast<const std::uint8_t*>(second.data()),
                                   static_cast<std::uint32_t>(second.size() * 2), shape.rate),
                  ZQX_OK);
    }
    EXPECT_EQ(writer.Finish(), ZQX_OK);
    return path;
}

class PlayerFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_TRUE(registry_);
        // A device used before: the welcome of the first run is over.
        SettingsStore(*registry_).SetFirstTimeRun(2);
        QDir().mkpath(device_.path("app"));
        // The shipped skins, drawn by the build beside the player.
        ASSERT_TRUE(QFile::link(QStringLiteral(TALVO_BUILD_DIR "/bin/Skins"), device_.path("app/Skins")));
    }

    QString musicPath(const QString& relative) const { return device_.path("music/" + relative); }

    // Builds the main window and runs its initial load.  With no factory the
    // window plays on a manual device whose buffers finish when the test says.
    void startPlayer(std::function<std::unique_ptr<WaveOut>()> makeWaveOut = nullptr)
    {
        if (!makeWaveOut) {
            makeWaveOut = [this] {
                auto wave = std::make_unique<ManualWaveOut>();
                manual_ = wave.get();
                return std::unique_ptr<WaveOut>(std::move(wave));
            };
        }
        frame_ = std::make_unique<CMainFrame>(CMainFrame::Environment{
            *registry_, device_.path("app"), QString(), std::move(makeWaveOut), makeDeviceServices_});
        pump();
    }

    // Runs the event loop until nothing is left to do or the condition holds.
    bool pump(const std::function<bool()>& until = nullptr, int timeoutMs = 20000)
    {
        QElapsedTimer clock;
        clock.start();
        do {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            if (until && until())
                return true;
        } while (until && clock.elapsed() < timeoutMs);
        return !until;
    }

    ProgramFile& current() { return *frame_->Library().Current(); }

    // A device that plays in real time, for tests of what may stall playback.
    static std::unique_ptr<WaveOut> PacedWaveOut() { return std::make_unique<NullWaveOut>(1.0); }

    // Runs the event loop for ms and answers how far the program moved
    // meanwhile: a window that stalls refills no buffers, and the position
    // stands still.  The position moves a buffer at a time (two seconds of a
    // generated program), so measure over longer than that.
    std::uint32_t advanceOver(int ms)
    {
        const std::uint32_t before = current().Position();
        pump([] { return false; }, ms);
        return current().Position() - before;
    }

    TestDevice device_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<CMainFrame> frame_;
    ManualWaveOut* manual_ = nullptr;
    // Device services for the window; none unless a test gives them.
    std::function<DeviceServices()> makeDeviceServices_;
};

} // namespace talvo::test
