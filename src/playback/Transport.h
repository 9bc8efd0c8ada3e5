#pragma once
// Moving the play position and changing the program: fixed steps, the
// accelerating holds of fast-forward and rewind, section holds, jump back,
// next and previous title, bookmarks and volume steps.
//
// Hold operations take a step number: 0 starts the hold (draws the button
// pressed, starts its timer and runs step 1), n >= 1 runs step n (the main
// window's timer passes its running count), -1 ends it.  Every position is the
// SDK's read position at the moment of the step, which runs ahead of what is
// heard by the buffers already decoded.
#include <cstdint>

namespace talvo {

class AudioOutput;
class MessageWindow;
class PlayerView;
class ProgramLibrary;
class ProgramStateStore;
class SettingsStore;

class Transport {
public:
    // Fast-forward hold step n moves (n / 3) x 5000 + 1000 ms.
    static constexpr std::uint32_t kHoldStepGrowthMs = 5000;
    static constexpr std::uint32_t kHoldStepBaseMs = 1000;
    static constexpr int kHoldStepsPerGrowth = 3;
    // The rewind step that a released rewind button runs while playing.
    static constexpr int kRewindReleaseStep = 5;

    Transport(MessageWindow& window, PlayerView& view, ProgramLibrary& library, ProgramStateStore& store,
              SettingsStore& settings, AudioOutput& audio);

    void StepForward(std::uint32_t amountMs);
    void StepBack(std::uint32_t amountMs);
    void FastForwardHold(int step);
    void RewindHold(int step);
    void NextSectionHold(int step);
    void PreviousSectionHold(int step);
    // The menu's section commands: pressed, one step, released.
    void NextSectionMenu();
    void PreviousSectionMenu();
    void JumpBack(bool start);
    // Jump back by the stored step, as the menu does.
    void JumpBackByStoredStep();
    int NextTitle();
    int PreviousTitle();
    int GoToBookmark(int index);
    // Moves to a position as a remote client asks, without the steps' button feedback.
    void SeekTo(std::uint32_t positionMs);
    void VolumeUpHold(int step);
    void VolumeDownHold(int step);

    int holdCounter = 0;

private:
    int changeTitle(int newIndex);
    void sectionHold(int step, bool next);
    void volumeStep(bool up);
    void volumeHold(int step, bool up);
    void endSeekHold(unsigned timer, std::uint16_t button);

    MessageWindow& window_;
    PlayerView& view_;
    ProgramLibrary& library_;
    ProgramStateStore& store_;
    SettingsStore& settings_;
    AudioOutput& audio_;
};

} // namespace talvo
