#include "playback/ProgramFile.h"

#include "base/StringTable.h"
#include "library/ProgramStateStore.h"
#include "platform/FileNames.h"
#include "platform/MessageBox.h"
#include "playback/CMp3.h"

#include <QThread>
#include <array>

namespace talvo {
namespace {

// Blocks of SDK-decoded audio are read whole; no block is larger.
constexpr std::uint32_t kEncodedBlockBytes = ZQX_MAX_BLOCK_BYTES;
constexpr std::uint32_t kMp3FrameBytes = ZQX_MP3_FRAME_BYTES;
constexpr std::uint32_t kMp3PcmBytes = 1152;
// A type-4 block is five frames.
constexpr int kMp3FramesPerBlock = 5;
constexpr unsigned long kSeekGatePollMs = 50;

void showOpenError(const QString& text)
{
    ShowMessageBox(nullptr, text, LoadString(Str::ErrorCaption), kErrorBoxStyle);
}

} // namespace

ProgramFile::ProgramFile(QString path) : path(std::move(path))
{
}

ProgramFile::~ProgramFile()
{
    Close();
}

int ProgramFile::ReadMetadata()
{
    int status = OpenZQXFile(path.toStdU16String());
    if (status != ZQX_OK)
        return status;
    durationMs = GetLengthMs();
    timeOffsetMs = GetTimeOffsetMs();
    sampleRate = GetSampleRate();
    channels = GetChannels();
    fileType = GetFileType();
    return status;
}

bool ProgramFile::Open(ProgramStateStore& store)
{
    if (sdkHandle != 0)
        return true;
    std::u16string widePath = path.toStdU16String();
    int32_t status = ZQXOpenFileWinW(&sdkHandle, widePath.c_str());
    if (status != ZQX_OK) {
        if (sdkHandle != 0)
            ZQXCloseFile(sdkHandle);
        sdkHandle = 0;
        QByteArray name = DisplayFileName(path).toUtf8();
        if (status == ZQX_ERR_DAMAGED)
            showOpenError(QString::asprintf(qPrintable(LoadString(Str::ProgramDamaged)), name.constData()));
        else
            showOpenError(QString::asprintf(qPrintable(LoadString(Str::ProgramOpenFailed)), name.constData(),
                                            static_cast<int>(status)));
        return false;
    }
    imageStartTimes.clear();
    int32_t count = 0;
    if (ZQXGetImageCount(sdkHandle, &count) == ZQX_OK) {
        for (int32_t i = 0; i < count; ++i) {
            uint32_t start = 0;
            ZQXGetImageStartTime(sdkHandle, i, &start);
            imageStartTimes.push_back(start);
        }
    }
    return store.LoadProgramState(*this);
}

bool ProgramFile::Close()
{
    if (sdkHandle == 0)
        return false;
    ZQXCloseFile(sdkHandle);
    sdkHandle = 0;
    return true;
}

void ProgramFile::waitForSeekGate() const
{
    while (!seekGate.load())
        QThread::msleep(kSeekGatePollMs);
}

bool ProgramFile::Seek(std::uint32_t ms)
{
    if (sdkHandle == 0)
        return false;
    waitForSeekGate();
    const std::uint32_t before = Position();
    seekGate = false;
    int32_t status = ZQXSeek(sdkHandle, ms);
    seekGate = true;
    return countJump(before, status == ZQX_OK);
}

bool ProgramFile::countJump(std::uint32_t before, bool moved)
{
    // A seek to where the program stands (after a device reset) is no jump.
    if (moved && Position() != before)
        ++jumpCount;
    return moved;
}

bool ProgramFile::NextSection()
{
    int32_t count = -1;
    if (sdkHandle != 0) {
        ZQXGetChapterCount(sdkHandle, &count);
        if (count == 0)
            return true;
    }
    int32_t current = CurrentSection();
    if (static_cast<uint32_t>(current) >= static_cast<uint32_t>(count))
        return true;
    // At the last section this asks for the one past it; the SDK's answer decides.
    const std::uint32_t before = Position();
    return countJump(before, ZQXSeekToChapter(sdkHandle, current + 1) == ZQX_OK);
}

bool ProgramFile::PreviousSection()
{
    if (sdkHandle == 0)
        return false;
    int32_t count = -1;
    ZQXGetChapterCount(sdkHandle, &count);
    if (count == 0)
        return true;
    int32_t current = CurrentSection();
    // Always the start of the previous section, never of the current one.
    const std::uint32_t before = Position();
    int32_t status = current == 0 ? ZQXSeek(sdkHandle, 0) : ZQXSeekToChapter(sdkHandle, current - 1);
    return countJump(before, status == ZQX_OK);
}

std::uint32_t ProgramFile::Position() const
{
    uint32_t ms = 0;
    if (sdkHandle != 0)
        ZQXGetPlaybackPosition(sdkHandle, &ms);
    return ms;
}

std::int32_t ProgramFile::SectionCount() const
{
    int32_t count = -1;
    if (sdkHandle != 0)
        ZQXGetChapterCount(sdkHandle, &count);
    return count;
}

std::int32_t ProgramFile::CurrentSection() const
{
    int32_t index = -1;
    if (sdkHandle != 0)
        ZQXGetCurrentChapter(sdkHandle, &index);
    return index;
}

std::uint32_t ProgramFile::SectionEndMs(std::uint32_t positionMs) const
{
    for (const Section& section : GetSections()) {
        if (section.startMs > positionMs)
            return section.startMs;
    }
    return durationMs;
}

bool ProgramFile::WaveFormat(WAVEFORMATEX* format) const
{
    format->wFormatTag = WAVE_FORMAT_PCM;
    format->nChannels = static_cast<uint16_t>(channels);
    format->nSamplesPerSec = sampleRate;
    // Halved and fixed on purpose: the output is opened with these values as they stand.
    format->nAvgBytesPerSec = (channels * sampleRate * 2) >> 1;
    format->nBlockAlign = 2;
    format->wBitsPerSample = 16;
    format->cbSize = 0;
    return true;
}

std::uint32_t ProgramFile::DecodeUnit() const
{
    int32_t type = 0;
    if (sdkHandle != 0)
        ZQXGetFileType(sdkHandle, &type);
    if (type == ZQX_TYPE_OPUS)
        return channels * 2048;
    if (type == ZQX_TYPE_MP3)
        return kMp3PcmBytes;
    // Half a second of 16-bit audio.
    return (channels * sampleRate * 2) >> 1;
}

bool ProgramFile::DecodeBlock(std::uint8_t* out, std::uint32_t room, std::uint32_t* length)
{
    return IsMp3() ? decodeMp3Block(out, length) : decodeSdkBlock(out, room, length);
}

bool ProgramFile::decodeSdkBlock(std::uint8_t* out, std::uint32_t room, std::uint32_t* length)
{
    std::array<std::uint8_t, kEncodedBlockBytes> encoded;
    uint32_t encodedLength = 0;
    if (ZQXGetEncodedAudio(sdkHandle, encoded.data(), kEncodedBlockBytes, &encodedLength) != ZQX_OK)
        return false;
    seekGate = true;
    uint32_t filled = 0;
    for (;;) {
        uint32_t produced = 0;
        int32_t status = ZQXDecodePCMFrame(sdkHandle, encoded.data(), encodedLength, out + filled,
                                           room - filled, &produced);
        filled += produced;
        if (status != ZQX_OK) {
            *length = filled;
            if (status == ZQX_ERR_END_OF_AUDIO)
                return false;
            // Any other failure drops this block and goes on with the next.
        } else if (produced == 0 || static_cast<int64_t>(room) - produced - filled <= 0) {
            // No room for another block of the same size.
            *length = filled;
            return true;
        }
        encodedLength = 0;
        // The audio ran out in the middle of a buffer: the partial buffer is
        // dropped, which the output takes for the end of the program.
        if (ZQXGetEncodedAudio(sdkHandle, encoded.data(), kEncodedBlockBytes, &encodedLength) != ZQX_OK)
            return false;
        seekGate = true;
    }
}

bool ProgramFile::decodeMp3Block(std::uint8_t* out, std::uint32_t* length)
{
    if (!mp3Decoder) {
        mp3Decoder = CMp3::Create();
        if (!mp3Decoder)
            return false;
    }
    *length = 0;
    std::array<std::uint8_t, kMp3FrameBytes> frame;
    int32_t status = ZQX_OK;
    for (int i = 0; i < kMp3FramesPerBlock; ++i) {
        uint32_t frameLength = 0;
        status = ZQXGetEncodedAudio(sdkHandle, frame.data(), kMp3FrameBytes, &frameLength);
        if (status != ZQX_OK && status != ZQX_ERR_LAST_FRAME)
            break;
        if (!mp3Decoder->DecodeFrame(frame.data(), out + i * kMp3PcmBytes))
            return false;
        seekGate = true;
    }
    // A fifth read that delivered the last frame still ends the program here.
    if (status != ZQX_OK)
        return false;
    *length = kMp3FramesPerBlock * kMp3PcmBytes;
    return true;
}

QString ProgramFile::Key() const
{
    // The identifier is narrow; each byte widens to one character.
    QString key = QString::fromLatin1(GetProgramId());
    if (fileType == ZQX_TYPE_OPUS)
        key += QStringLiteral("_zqx");
    return key;
}

} // namespace talvo
