#include "playback/Transport.h"

#include "base/CommandIds.h"
#include "library/ProgramLibrary.h"
#include "library/ProgramStateStore.h"
#include "platform/MessageWindow.h"
#include "playback/AudioOutput.h"
#include "playback/PlayerView.h"
#include "playback/ProgramFile.h"
#include "settings/SettingsStore.h"

#include <QCoreApplication>
#include <QTimer>

namespace talvo {
namespace {

// How often the title change's wait for the queued audio looks for notices.
constexpr int kDrainLookMs = 20;

// The level scale is 0..65535 and the user sees percent: both conversions
// truncate, so a step adds 11 and takes 9 to move ten shown points.
constexpr double kPercentPerLevel = 0.0015259021896696422;
constexpr double kLevelPerPercent = 655.35;
constexpr std::uint32_t kVolumeUpStep = 11;
constexpr std::uint32_t kVolumeDownStep = 9;
constexpr std::uint32_t kVolumeUpCeiling = 90;
constexpr std::uint32_t kVolumeDownFloor = 11;

std::uint32_t holdStepMs(int step)
{
    return static_cast<std::uint32_t>(step / Transport::kHoldStepsPerGrowth) * Transport::kHoldStepGrowthMs +
           Transport::kHoldStepBaseMs;
}

} // namespace

Transport::Transport(MessageWindow& window, PlayerView& view, ProgramLibrary& library,
                     ProgramStateStore& store, SettingsStore& settings, AudioOutput& audio)
    : window_(window), view_(view), library_(library), store_(store), settings_(settings), audio_(audio)
{
}

void Transport::StepForward(std::uint32_t amountMs)
{
    ProgramFile* program = library_.Current();
    if (!program)
        return;
    window_.PostCommand(Command::FastForwardPressed);
    audio_.ResetAndDrain();
    // No upper clamp: the SDK answers a seek past the end.
    program->Seek(program->Position() + amountMs);
    audio_.lastPositionMs = program->Position();
    if (audio_.IsPlaying())
        audio_.Prime();
    window_.PostCommand(Command::FastForwardReleased);
}

void Transport::SeekTo(std::uint32_t positionMs)
{
    ProgramFile* program = library_.Current();
    if (!program)
        return;
    audio_.ResetAndDrain();
    program->Seek(positionMs);
    audio_.lastPositionMs = program->Position();
    if (audio_.IsPlaying())
        audio_.Prime();
    view_.RedrawPosition();
}

void Transport::StepBack(std::uint32_t amountMs)
{
    ProgramFile* program = library_.Current();
    if (!program)
        return;
    window_.PostCommand(Command::RewindPressed);
    audio_.ResetAndDrain();
    std::uint32_t position = program->Position();
    program->Seek(position < amountMs ? 0 : position - amountMs);
    audio_.lastPositionMs = program->Position();
    if (audio_.IsPlaying())
        audio_.Prime();
    window_.PostCommand(Command::RewindReleased);
}

void Transport::endSeekHold(unsigned timer, std::uint16_t button)
{
    view_.DrawButton(button, false);
    if (view_.IsVolumeIndicatorShown())
        view_.ShowVolumeIndicator(true);
    window_.KillTimer(timer);
    holdCounter = 0;
    audio_.ResetAndDrain();
    if (audio_.IsPlaying())
        audio_.Prime();
    audio_.seeking = false;
    // The steps drew the position while the hold lasted; drawing it once
    // more tells the player's observers where the hold ended.
    if (!view_.IsVolumeIndicatorShown())
        view_.RedrawPosition();
}

void Transport::FastForwardHold(int step)
{
    if (step == 0) {
        audio_.seeking = true;
        holdCounter = 1;
        view_.DrawButton(Command::FastForward1min, true);
        window_.SetTimer(Timer::FastForwardHold, Timer::SeekHoldPeriodMs);
        FastForwardHold(1);
        return;
    }
    if (step < 0) {
        endSeekHold(Timer::FastForwardHold, Command::FastForward1min);
        return;
    }
    ProgramFile* program = library_.Current();
    if (!program) {
        FastForwardHold(-1);
        return;
    }
    std::uint32_t target = program->Position() + holdStepMs(step);
    bool pastEnd = target > program->durationMs;
    audio_.lastPositionMs = pastEnd ? program->durationMs : target;
    program->Seek(audio_.lastPositionMs);
    if (pastEnd)
        FastForwardHold(-1);
    if (!view_.IsVolumeIndicatorShown())
        view_.RedrawPosition();
}

void Transport::RewindHold(int step)
{
    if (step == 0) {
        audio_.seeking = true;
        holdCounter = 1;
        view_.DrawButton(Command::Rewind1min, true);
        window_.SetTimer(Timer::RewindHold, Timer::SeekHoldPeriodMs);
        RewindHold(1);
        return;
    }
    if (step < 0) {
        endSeekHold(Timer::RewindHold, Command::Rewind1min);
        return;
    }
    ProgramFile* program = library_.Current();
    if (!program) {
        RewindHold(-1);
        return;
    }
    std::int64_t target = std::int64_t{program->Position()} - holdStepMs(step);
    bool beforeStart = target < 0;
    audio_.lastPositionMs = beforeStart ? 0 : static_cast<std::uint32_t>(target);
    program->Seek(audio_.lastPositionMs);
    if (beforeStart)
        RewindHold(-1);
    if (library_.Current() && !view_.IsVolumeIndicatorShown())
        view_.RedrawPosition();
}

void Transport::NextSectionHold(int step)
{
    sectionHold(step, true);
}

void Transport::PreviousSectionHold(int step)
{
    sectionHold(step, false);
}

void Transport::sectionHold(int step, bool next)
{
    const std::uint16_t button = next ? Command::NextSection : Command::PreviousSection;
    const unsigned timer = next ? Timer::NextSectionHold : Timer::PreviousSectionHold;
    if (step == 0) {
        holdCounter = 1;
        view_.DrawButton(button, true);
        window_.SetTimer(timer, Timer::SectionHoldPeriodMs);
        sectionHold(1, next);
        return;
    }
    if (step < 0) {
        view_.DrawButton(button, false);
        window_.KillTimer(timer);
        holdCounter = 0;
        return;
    }
    ProgramFile* program = library_.Current();
    if (!program) {
        sectionHold(-1, next);
        return;
    }
    audio_.seeking = true;
    audio_.ResetAndDrain();
    if (next)
        program->NextSection();
    else
        program->PreviousSection();
    audio_.lastPositionMs = program->Position();
    audio_.seeking = false;
    if (audio_.IsPlaying())
        audio_.Prime();
    view_.RedrawPosition();
    // Only the previous-section step redraws the volume indicator over the position.
    if (!next && view_.IsVolumeIndicatorShown())
        view_.ShowVolumeIndicator(true);
}

void Transport::NextSectionMenu()
{
    // The posted pressed command starts a hold with its own first step, so the
    // menu moves two sections; deliberately so.
    window_.PostCommand(Command::NextSectionPressed);
    NextSectionHold(1);
    window_.PostCommand(Command::NextSectionReleased);
}

void Transport::PreviousSectionMenu()
{
    window_.PostCommand(Command::PreviousSectionPressed);
    PreviousSectionHold(1);
    window_.PostCommand(Command::PreviousSectionReleased);
}

void Transport::JumpBack(bool start)
{
    if (start) {
        view_.DrawButton(Command::JumpBack, true);
        JumpBackByStoredStep();
    } else {
        view_.DrawButton(Command::JumpBack, false);
        holdCounter = 0;
    }
}

void Transport::JumpBackByStoredStep()
{
    audio_.jumpBackSeconds = settings_.GetJumpBack();
    StepBack(audio_.jumpBackSeconds * 1000);
}

int Transport::NextTitle()
{
    int count = library_.Count();
    int next = library_.CurrentIndex() + 1;
    return count == 0 ? -1 : changeTitle(next < count ? next : 0);
}

int Transport::PreviousTitle()
{
    int count = library_.Count();
    // At the first program this gives -1, which the selection ignores, so the
    // first program stays current; deliberately unlike NextTitle.
    int previous = library_.CurrentIndex() - 1;
    return count == 0 ? -1 : changeTitle(previous < count ? previous : 0);
}

int Transport::changeTitle(int newIndex)
{
    if (library_.Count() == 1)
        return 0;
    bool wasPlaying = audio_.IsPlaying();
    if (wasPlaying) {
        if (audio_.QueuedCount() > 0) {
            // Let the queued audio play out without refills.
            audio_.draining = true;
            window_.setEnabled(false);
            // This loop runs inside the handler of a posted command, where a
            // nested wait does not always see the notices posted meanwhile:
            // deliver them explicitly, and wake up now and then to look.
            QTimer wake;
            wake.start(kDrainLookMs);
            while (audio_.QueuedCount() > 0) {
                window_.DeliverPostedBufferDone();
                if (audio_.QueuedCount() > 0)
                    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            }
            window_.setEnabled(true);
            audio_.draining = false;
        }
        audio_.Stop();
    }
    view_.SetWaitCursor(true);
    library_.SelectProgram(newIndex);
    view_.SetWaitCursor(false);
    ProgramFile* program = library_.Current();
    audio_.lastPositionMs = program ? program->Position() : 0;
    view_.DropCoverPicture();
    view_.RedrawDisplay();
    if (wasPlaying)
        window_.PostCommand(Command::PlayStop);
    return 0;
}

int Transport::GoToBookmark(int index)
{
    ProgramFile* program = library_.Current();
    if (!program)
        return 0;
    if (index < 0 || static_cast<std::size_t>(index) >= program->bookmarks.size())
        return -1;
    audio_.ResetAndDrain();
    program->Seek(program->bookmarks[static_cast<std::size_t>(index)].timeMs);
    // Keep the jump: the position is saved as if the program had been left here.
    store_.SaveProgramState(*program);
    audio_.lastPositionMs = program->Position();
    if (audio_.IsPlaying())
        audio_.Prime();
    view_.RedrawPosition();
    return 0;
}

void Transport::volumeStep(bool up)
{
    auto percent = static_cast<std::uint32_t>(settings_.GetVolume() * kPercentPerLevel);
    if (up)
        percent = percent < kVolumeUpCeiling ? percent + kVolumeUpStep : 100;
    else
        percent = percent < kVolumeDownFloor ? 0 : percent - kVolumeDownStep;
    audio_.SetVolume(static_cast<DWORD>(percent * kLevelPerPercent));
    view_.DrawButton(up ? Command::VolumeUp : Command::VolumeDown, true);
    view_.ShowVolumeIndicator(true);
}

void Transport::volumeHold(int step, bool up)
{
    unsigned timer = up ? Timer::VolumeUpHold : Timer::VolumeDownHold;
    if (step == 0) {
        volumeStep(up);
        window_.KillTimer(Timer::HideVolume);
        holdCounter = 0;
        window_.SetTimer(timer, Timer::VolumeHoldPeriodMs);
    } else if (step > 0) {
        volumeStep(up);
    } else {
        view_.DrawButton(up ? Command::VolumeUp : Command::VolumeDown, false);
        window_.KillTimer(timer);
        holdCounter = 0;
        window_.SetTimer(Timer::HideVolume, Timer::HideVolumeDelayMs);
    }
}

void Transport::VolumeUpHold(int step)
{
    volumeHold(step, true);
}

void Transport::VolumeDownHold(int step)
{
    volumeHold(step, false);
}

} // namespace talvo
