#pragma once
// CZQXWriter: writes one program file (the container described in sdk/docs/format.md)
// from packets that are already encoded.  Encoding is the caller's job; the writer
// checks each packet's shape, builds the seek index and the checksums, and
// publishes the file atomically (temporary file beside the target, fsync, rename).
//
// What AddPacket expects per file type (every packet at most ZQX_MAX_BLOCK_BYTES
// bytes and delivering at least one sample; sampleCount counts sample frames, i.e.
// per channel, at the file's sample rate):
//
//   1, 2  IMA ADPCM, mono, 8000 Hz (type 1) / 16000 Hz (type 2).  One self-contained
//         block: int16 LE first sample, uint8 step index (0..88), uint8 0, then
//         4-bit codes, low nibble first, one per following sample (ImaAdpcm.h in
//         sdk/src/codec holds the tables and the block decoder).  A block of n
//         bytes holds up to 1 + 2*(n-4) samples; sampleCount may be less only for
//         the last block (its spare nibble is padding).  Use one block size for the
//         whole file so every block decodes to the same PCM size.
//   3     Opus, 1 or 2 channels, sample rate 8000/12000/16000/24000/48000.  One Opus
//         packet (as opus_encode returns it); sampleCount is what it decodes to
//         (the last packet may give less, to trim the encoder's padding).  Call
//         SetPreSkip with the encoder's lookahead (OPUS_GET_LOOKAHEAD, at the file's
//         rate): the SDK drops that many samples from the first packet so the
//         decoded audio lines up with the input.  Use one frame size (20 ms advised).
//   4     MPEG-2 Layer III, 22050 Hz, mono.  Exactly one 104-byte frame, sampleCount
//         576.  Not decoded by the SDK: the player gets the frames as they are.
//   5     16-bit LE PCM, interleaved; byte length = sampleCount * channels * 2.
//         AddPcm16 cuts plain PCM into packets for you.
//
// Packets go to two nameless spool files in the target's folder as they come,
// so memory stays the same for a program of any length (pictures and sections
// are kept in memory); the file's index comes before its audio, so Finish
// copies both behind the other chunks, and the folder needs room for the audio
// twice for that moment.  Every operation returns ZQX_OK or a ZQX_* status; nothing throws.  The file
// appears under its name only when Finish succeeds; the destructor of an
// unfinished writer aborts it (the temporary file is removed).

#include "zqx/zqxsdk.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class ZQX_EXPORT CZQXWriter {
public:
    CZQXWriter();
    ~CZQXWriter();
    CZQXWriter(const CZQXWriter&) = delete;
    CZQXWriter& operator=(const CZQXWriter&) = delete;

    // Starts a file at path (UTF-8).  Checks the type's sample rate and channel
    // rules (ZQX_ERR_UNSUPPORTED otherwise) and creates the temporary and spool files.
    int Create(const std::string& path, int32_t fileType, uint32_t sampleRate, uint32_t channels);

    // Metadata; strings are UTF-8 (invalid sequences are rejected with ZQX_ERR_BAD_ARGUMENT).
    int SetProgramId(const std::string& id);
    int SetTitle(const std::string& text);
    int SetAuthor(const std::string& text);
    int SetNarrator(const std::string& text);
    int SetProvider(const std::string& text);
    int SetDescription(const std::string& text);
    int SetTimeOffset(uint32_t ms);
    // Marks the file as a part [startMs, endMs] of a longer program.
    int SetTimeSpan(bool flag, uint32_t startMs, uint32_t endMs);

    // Sections may come in any order; they are sorted by start at Finish.  A start
    // beyond the audio's length makes Finish fail with ZQX_ERR_OUT_OF_RANGE.
    int AddSection(uint32_t startMs, const std::string& title);
    // kind: 1 JPEG, 2 PNG (checked against the bytes' signature).  The first
    // picture added is the cover.
    int AddPicture(uint32_t startMs, uint32_t kind, const std::vector<uint8_t>& bytes);

    // Type 3 only, before Finish: samples of codec delay to drop at the start;
    // must be less than the first packet's sampleCount.
    int SetPreSkip(uint32_t samples);

    int AddPacket(const uint8_t* data, uint32_t size, uint32_t sampleCount);
    // Type 5 only: appends interleaved PCM (sample frames), cutting it into
    // packets of ZQX_MAX_BLOCK_BYTES; may be called repeatedly.
    int AddPcm16(const int16_t* samples, size_t frameCount);

    // Writes sections, pictures, index and audio with their checksums, syncs and
    // renames the temporary file over path.  A file without audio is refused
    // (ZQX_ERR_BAD_ARGUMENT).
    int Finish();
    // Drops everything and removes the temporary file.
    void Abort();

    // Totals so far, for progress reports.
    uint64_t GetTotalSamples() const;
    uint32_t GetPacketCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
