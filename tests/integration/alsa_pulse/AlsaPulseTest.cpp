// The ALSA wave output against a real sound server: PulseAudio runs as a user
// process with a null sink, the output plays through ALSA's pulse device, and
// parec records the sink's monitor.  The recording must hold the played PCM
// sample for sample, after whatever silence the server's latency put first.
#include "platform/WaveOut.h"
#include "platform/linux/AlsaWaveOut.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace talvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::uint32_t kRate = 22050;
constexpr std::uint16_t kChannels = 2;
constexpr const char* kSink = "talvo_test_sink";

// Starts a program with extra environment; its standard output goes to a file when given.
pid_t Spawn(const std::vector<std::string>& args, const std::vector<std::string>& extraEnv,
            const fs::path& stdoutPath = {})
{
    std::vector<std::string> envStrings(extraEnv);
    for (char** e = environ; *e != nullptr; ++e) {
        envStrings.emplace_back(*e);
    }
    std::vector<char*> argv, envp;
    for (const auto& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    for (const auto& e : envStrings) {
        envp.push_back(const_cast<char*>(e.c_str()));
    }
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!stdoutPath.empty()) {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, stdoutPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int RunAndWait(const std::vector<std::string>& args, const std::vector<std::string>& env,
               const fs::path& stdoutPath = {})
{
    const pid_t pid = Spawn(args, env, stdoutPath);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) < 0) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Stop(pid_t& pid, int signal)
{
    if (pid > 0) {
        kill(pid, signal);
        waitpid(pid, nullptr, 0);
        pid = -1;
    }
}

class AlsaPulse : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/talvo-pulse-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        fs::create_directories(dir_ / "home");
        fs::create_directories(dir_ / "run");
        socket_ = dir_ / "run" / "native";
        std::ofstream(dir_ / "server.pa")
            << "load-module module-null-sink sink_name=" << kSink << " rate=" << kRate
            << " channels=" << kChannels << " format=s16le\n"
            << "load-module module-native-protocol-unix auth-anonymous=1 socket=" << socket_.string() << "\n"
            << "set-default-sink " << kSink << "\n";
        // Everything the server and its clients look up goes into our folder;
        // a root user is warned about, not refused, as long as --system is off.
        env_ = {"HOME=" + (dir_ / "home").string(), "XDG_RUNTIME_DIR=" + (dir_ / "run").string(),
                "PULSE_RUNTIME_PATH=" + (dir_ / "run").string(), "PULSE_SERVER=unix:" + socket_.string()};
        server_ = Spawn({"pulseaudio", "-n", "--daemonize=no", "--system=false", "--exit-idle-time=-1",
                         "--disable-shm=true", "--log-level=error", "-F", (dir_ / "server.pa").string()},
                        env_);
        for (int i = 0; i < 100 && server_ > 0; ++i) {
            if (fs::exists(socket_) && RunAndWait({"pactl", "info"}, env_, dir_ / "info.txt") == 0) {
                serverUp_ = true;
                break;
            }
            std::this_thread::sleep_for(100ms);
        }
        // The ALSA pulse plugin finds the server through the environment.
        for (const auto& e : env_) {
            const auto eq = e.find('=');
            setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
        }
    }

    void TearDown() override
    {
        Stop(recorder_, SIGINT);
        Stop(server_, SIGTERM);
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    fs::path dir_, socket_;
    std::vector<std::string> env_;
    pid_t server_ = -1;
    pid_t recorder_ = -1;
    bool serverUp_ = false;
};

TEST_F(AlsaPulse, RecordedMonitorHoldsThePlayedPcm)
{
    if (!serverUp_) {
        GTEST_SKIP()
            << "PulseAudio could not be started as a user process here (pulseaudio -n with a null sink "
               "did not answer on "
            << socket_ << "); nothing to play into";
    }
    const fs::path recording = dir_ / "monitor.raw";
    recorder_ = Spawn({"parec", "--device=" + std::string(kSink) + ".monitor", "--raw", "--format=s16le",
                       "--rate=" + std::to_string(kRate), "--channels=" + std::to_string(kChannels),
                       "--latency-msec=20"},
                      env_, recording);
    ASSERT_GT(recorder_, 0);
    bool recording_started = false;
    for (int i = 0; i < 50 && !recording_started; ++i) {
        std::this_thread::sleep_for(100ms);
        recording_started =
            RunAndWait({"sh", "-c", "pactl list short source-outputs | grep -q ."}, env_) == 0;
    }
    ASSERT_TRUE(recording_started) << "parec did not connect";

    // A lead-in of silence, because the monitor drops the first moments after
    // the sink wakes up, then four buffers of 0.4 s of noise, as the player
    // queues them, in the player's format.
    constexpr std::size_t kLeadInFrames = kRate / 2;
    constexpr std::size_t kFramesPerBuffer = kRate * 2 / 5;
    std::mt19937 random(7);
    std::uniform_int_distribution<int> sample(-12000, 12000);
    std::vector<std::int16_t> noise(4 * kFramesPerBuffer * kChannels);
    for (auto& s : noise) {
        s = std::int16_t(sample(random));
    }
    std::vector<std::int16_t> played(kLeadInFrames * kChannels, 0);
    played.insert(played.end(), noise.begin(), noise.end());
    std::vector<WAVEHDR> headers(5);
    AlsaWaveOut out("pulse");
    std::mutex mutex;
    std::condition_variable cv;
    std::size_t finished = 0;
    const WAVEFORMATEX format{WAVE_FORMAT_PCM, kChannels, kRate, (kChannels * kRate * 2) >> 1, 2, 16, 0};
    ASSERT_EQ(out.Open(format,
                       [&](WAVEHDR*) {
                           std::lock_guard lock(mutex);
                           ++finished;
                           cv.notify_all();
                       }),
              MMSYSERR_NOERROR);
    std::size_t offset = 0;
    for (std::size_t i = 0; i < headers.size(); ++i) {
        const std::size_t frames = i == 0 ? kLeadInFrames : kFramesPerBuffer;
        headers[i].lpData = reinterpret_cast<char*>(played.data() + offset);
        headers[i].dwBufferLength = DWORD(frames * kChannels * 2);
        offset += frames * kChannels;
        ASSERT_EQ(out.PrepareHeader(&headers[i], sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        ASSERT_EQ(out.Write(&headers[i], sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(cv.wait_for(lock, 20s, [&] { return finished == headers.size(); }))
            << finished << " of 5 buffers came back";
    }
    EXPECT_EQ(out.Reset(), MMSYSERR_NOERROR);
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
    std::this_thread::sleep_for(500ms); // let the monitor pass on the tail
    Stop(recorder_, SIGINT);

    std::ifstream in(recording, std::ios::binary);
    const std::vector<char> raw{std::istreambuf_iterator<char>(in), {}};
    std::vector<std::int16_t> heard(raw.size() / 2);
    std::memcpy(heard.data(), raw.data(), heard.size() * 2);
    ASSERT_GE(heard.size(), noise.size()) << "the recording is shorter than what was played";

    // Offset: where the start of the noise correlates best.
    constexpr std::size_t kProbe = 2048 * kChannels;
    std::size_t best = 0;
    double bestScore = -1;
    for (std::size_t lag = 0; lag + noise.size() <= heard.size(); lag += kChannels) {
        double score = 0;
        for (std::size_t i = 0; i < kProbe; ++i) {
            score += double(noise[i]) * heard[lag + i];
        }
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    std::size_t matching = 0;
    for (std::size_t i = 0; i < noise.size(); ++i) {
        matching += std::abs(int(noise[i]) - int(heard[best + i])) <= 2;
    }
    EXPECT_EQ(matching, noise.size()) << "noise found at frame " << best / kChannels << " of the recording";
}

} // namespace
} // namespace talvo
