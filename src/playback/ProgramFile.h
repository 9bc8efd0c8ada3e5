#pragma once
// One audio program: the SDK's metadata object extended with what playback and
// the library need.  The library keeps one per program found; at most one of
// them, the current program, has its SDK file open at a time.
//
// All calls happen on the user-interface thread.  seekGate is the one
// interlock on the SDK handle: a seek waits until no other seek or decode is
// under way.
#include "platform/WaveOut.h"
#include "zqx/TalvoMetadata.h"
#include "zqx/zqxsdk.h"

#include <QString>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace talvo {

class CMp3;
class ProgramStateStore;

struct Bookmark {
    std::u16string name;
    std::uint32_t timeMs = 0; // from the start of this file
    bool operator==(const Bookmark&) const = default;
};

class ProgramFile : public CTalvoMetadata {
public:
    explicit ProgramFile(QString path);
    ~ProgramFile();
    ProgramFile(const ProgramFile&) = delete;
    ProgramFile& operator=(const ProgramFile&) = delete;

    // Reads the metadata (never the audio) and takes over the fields playback
    // uses.  Returns the SDK status.
    int ReadMetadata();

    // Opens the SDK file, collects the picture start times, restores the saved
    // position and bookmarks.  Shows the error box itself when the SDK refuses.
    bool Open(ProgramStateStore& store);
    bool Close();
    bool IsOpen() const { return sdkHandle != 0; }

    bool Seek(std::uint32_t ms);
    bool NextSection();
    bool PreviousSection();
    std::uint32_t Position() const;
    std::int32_t SectionCount() const;
    std::int32_t CurrentSection() const;
    // Where the section holding a position ends: the next section's start, or
    // the end of the program.
    std::uint32_t SectionEndMs(std::uint32_t positionMs) const;
    std::uint32_t DisplayPosition() const { return timeOffsetMs + Position(); }
    std::uint32_t DisplayLength() const { return timeOffsetMs + durationMs; }

    bool IsMp3() const { return fileType == ZQX_TYPE_MP3; }
    bool WaveFormat(WAVEFORMATEX* format) const;
    std::uint32_t DecodeUnit() const;
    // Fills out with the next block of PCM; false at the end of the audio or on
    // an error (the caller treats both as the end of the program).
    bool DecodeBlock(std::uint8_t* out, std::uint32_t room, std::uint32_t* length);

    // The name of the program's registry record and generated files: the
    // program identifier, with "_zqx" for the enhanced format.
    QString Key() const;

    QString path;
    bool inMainMemory = true;
    ZQXHANDLE sdkHandle = 0;
    std::uint32_t durationMs = 0;
    std::uint32_t timeOffsetMs = 0;
    std::uint32_t sampleRate = 0;
    std::uint32_t channels = 0;
    std::int32_t fileType = 0;
    std::atomic<bool> seekGate{true};
    std::unique_ptr<CMp3> mp3Decoder;
    std::vector<std::uint32_t> imageStartTimes;
    std::vector<Bookmark> bookmarks;
    // Counts the moves of the position other than by playing on (a seek or a
    // section move that landed somewhere else), so that an observer of the
    // position can tell a jump from progress, whichever direction it went.
    std::uint32_t jumpCount = 0;

private:
    bool countJump(std::uint32_t before, bool moved);
    bool decodeSdkBlock(std::uint8_t* out, std::uint32_t room, std::uint32_t* length);
    bool decodeMp3Block(std::uint8_t* out, std::uint32_t* length);
    void waitForSeekGate() const;
};

} // namespace talvo
