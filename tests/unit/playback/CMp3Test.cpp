// CMp3's rules on a decoder that produces whatever the test asks for.
#include "playback/CMp3.h"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <thread>
#include <vector>

namespace talvo {
namespace {

struct Script {
    std::deque<std::uint32_t> lengths; // bytes each ProcessOutput call produces
    std::deque<bool> incomplete;       // what each ProcessOutput call says about more output
    HRESULT setupResult = S_OK;
    HRESULT inputResult = S_OK;
    HRESULT outputResult = S_OK;
    bool holdInputs = false;                  // keep a reference to every input buffer
    bool holdOutput = false;                  // keep a reference to the output buffer
    std::vector<const std::uint8_t*> inputs;  // buffers seen by ProcessInput
    std::vector<const std::uint8_t*> outputs; // areas written by ProcessOutput
    int flushes = 0;
};

class ScriptedBackend final : public Mp3FrameBackend {
public:
    explicit ScriptedBackend(Script& script) : script_(script) {}
    HRESULT Setup() override { return script_.setupResult; }
    HRESULT ProcessInput(Mp3Buffer& input) override
    {
        script_.inputs.push_back(input.data);
        if (script_.holdInputs) {
            ++input.refCount;
        }
        return script_.inputResult;
    }
    HRESULT ProcessOutput(Mp3Buffer& output, bool* incomplete) override
    {
        script_.outputs.push_back(output.data);
        if (script_.holdOutput) {
            ++output.refCount;
        }
        const std::uint32_t length = script_.lengths.empty() ? CMp3::kPcmBytes : script_.lengths.front();
        if (!script_.lengths.empty()) {
            script_.lengths.pop_front();
        }
        for (std::uint32_t i = 0; i < length; ++i) {
            output.data[output.length + i] = 0x5A;
        }
        output.length += length;
        *incomplete = !script_.incomplete.empty() && script_.incomplete.front();
        if (!script_.incomplete.empty()) {
            script_.incomplete.pop_front();
        }
        return script_.outputResult;
    }
    void Flush() override { ++script_.flushes; }

private:
    Script& script_;
};

class CMp3Rules : public ::testing::Test {
protected:
    std::unique_ptr<CMp3> Make() { return CMp3::Create(std::make_unique<ScriptedBackend>(script)); }
    bool Decode(CMp3& mp3)
    {
        pcm.fill(0xEE);
        return mp3.DecodeFrame(frame.data(), pcm.data());
    }

    Script script;
    std::array<std::uint8_t, CMp3::kFrameBytes> frame{};
    std::array<std::uint8_t, CMp3::kPcmBytes> pcm{};
};

TEST_F(CMp3Rules, OnlyAWholeFrameOrNothingIsAccepted)
{
    auto mp3 = Make();
    ASSERT_TRUE(mp3);
    script.lengths = {CMp3::kPcmBytes, 0, CMp3::kPcmBytes - 1, 0 + 2};
    EXPECT_TRUE(Decode(*mp3));
    EXPECT_EQ(pcm[0], 0x5A);
    EXPECT_EQ(pcm.back(), 0x5A);

    EXPECT_TRUE(Decode(*mp3)); // nothing decoded plays as silence
    EXPECT_EQ(pcm, (std::array<std::uint8_t, CMp3::kPcmBytes>{}));

    SetLastError(0);
    EXPECT_FALSE(Decode(*mp3));
    EXPECT_EQ(GetLastError(), std::uint32_t(E_UNEXPECTED));
    SetLastError(0);
    EXPECT_FALSE(Decode(*mp3));
    EXPECT_EQ(GetLastError(), std::uint32_t(E_UNEXPECTED));
}

TEST_F(CMp3Rules, MissingPointersFailWithEPointer)
{
    auto mp3 = Make();
    ASSERT_TRUE(mp3);
    EXPECT_FALSE(mp3->DecodeFrame(nullptr, pcm.data()));
    EXPECT_EQ(GetLastError(), std::uint32_t(E_POINTER));
    SetLastError(0);
    EXPECT_FALSE(mp3->DecodeFrame(frame.data(), nullptr));
    EXPECT_EQ(GetLastError(), std::uint32_t(E_POINTER));
    EXPECT_TRUE(script.inputs.empty());
}

TEST_F(CMp3Rules, InputBuffersRotateAndAHeldOneIsAnError)
{
    auto mp3 = Make();
    ASSERT_TRUE(mp3);
    for (int i = 0; i < 9; ++i) {
        ASSERT_TRUE(Decode(*mp3));
    }
    ASSERT_EQ(script.inputs.size(), 9u);
    for (int i = 0; i < 8; ++i) {
        for (int j = i + 1; j < 8; ++j) {
            EXPECT_NE(script.inputs[i], script.inputs[j]);
        }
    }
    EXPECT_EQ(script.inputs[8], script.inputs[0]); // the ninth call reuses the first

    // A decoder that keeps its inputs: eight more go in, the one after fails
    // without being handed over.
    auto holding = Make();
    script.inputs.clear();
    script.holdInputs = true;
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(Decode(*holding));
    }
    EXPECT_FALSE(Decode(*holding));
    EXPECT_EQ(GetLastError(), std::uint32_t(E_UNEXPECTED));
    EXPECT_EQ(script.inputs.size(), 8u);
}

TEST_F(CMp3Rules, PendingOutputIsThrownAwayOutsideTheCallersArea)
{
    auto mp3 = Make();
    ASSERT_TRUE(mp3);
    script.lengths = {CMp3::kPcmBytes, 300, 200};
    script.incomplete = {true, true, false};
    EXPECT_TRUE(Decode(*mp3));
    ASSERT_EQ(script.outputs.size(), 3u);
    EXPECT_EQ(script.outputs[0], pcm.data());
    EXPECT_NE(script.outputs[1], pcm.data());
    EXPECT_EQ(script.outputs[1], script.outputs[2]);
}

TEST_F(CMp3Rules, DecoderFailuresComeBackAsTheirCodes)
{
    constexpr HRESULT kDecoderError = static_cast<HRESULT>(0x80040201u);
    script.setupResult = kDecoderError;
    EXPECT_EQ(Make(), nullptr);
    EXPECT_EQ(GetLastError(), std::uint32_t(kDecoderError));
    script.setupResult = S_OK;

    auto mp3 = Make();
    ASSERT_TRUE(mp3);
    script.inputResult = kDecoderError;
    EXPECT_FALSE(Decode(*mp3));
    EXPECT_EQ(GetLastError(), std::uint32_t(kDecoderError));
    script.inputResult = S_OK;

    script.outputResult = kDecoderError;
    EXPECT_FALSE(Decode(*mp3));
    EXPECT_EQ(GetLastError(), std::uint32_t(kDecoderError));
    EXPECT_EQ(script.flushes, 0);
    script.outputResult = S_OK;

    // An output buffer the decoder keeps is unusable: flush and fail.
    script.holdOutput = true;
    EXPECT_FALSE(Decode(*mp3));
    EXPECT_EQ(GetLastError(), std::uint32_t(E_UNEXPECTED));
    EXPECT_EQ(script.flushes, 1);

    // The last error belongs to the thread that failed.
    std::uint32_t seenElsewhere = 1;
    std::thread([&] { seenElsewhere = GetLastError(); }).join();
    EXPECT_EQ(seenElsewhere, 0u);
}

} // namespace
} // namespace talvo
