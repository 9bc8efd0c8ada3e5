#pragma once
// CTalvoMetadata: the descriptive side of one program file, read without opening
// it for playback.  OpenZQXFile reads and verifies the header, the metadata and
// section chunks and the picture table, and checks that the index and audio
// chunks lie where they must; it reads neither the index, nor the picture bytes,
// nor the audio, so its cost does not grow with a program's length or its
// pictures and scanning a library of programs stays cheap.  A file it accepts can
// still be refused by ZQXOpenFileWinW when its index or picture chunk is damaged.
// Picture bytes are read from the file, and checked, each time they are asked for.
// The object is a plain value: copying it copies every field, and it holds no OS
// resource after OpenZQXFile returns.

#include "zqx/zqxsdk.h"

#include <cstdint>
#include <string>
#include <vector>

class ZQX_EXPORT CTalvoMetadata {
public:
    struct Section {
        uint32_t startMs = 0;
        std::u16string title;
    };
    struct Picture {
        uint32_t startMs = 0;
        uint32_t kind = 0; // 1 JPEG, 2 PNG
        uint32_t byteLength = 0;
    };

    // Returns ZQX_OK or a ZQX_* status (ZQX_ERR_DAMAGED for a damaged file); on
    // failure the object is left empty.
    int OpenZQXFile(const std::u16string& path);
    // Forgets everything read; the object is empty afterwards.
    void CloseZQXFile();
    bool IsOpen() const { return open; }

    // Narrow identifier naming the program's records; ASCII by convention.
    const std::string& GetProgramId() const { return programId; }
    int32_t GetFileType() const { return fileType; }
    // A file holding a part of a longer program: flag set, start/end of that stretch
    // within the whole program in ms.
    bool GetTimeSpanFlag() const { return timeSpanFlag; }
    uint32_t GetTimeSpanStart() const { return timeSpanStartMs; }
    uint32_t GetTimeSpanEnd() const { return timeSpanEndMs; }
    const std::u16string& GetTitle() const { return title; }
    const std::u16string& GetAuthor() const { return author; }
    const std::u16string& GetNarrator() const { return narrator; }
    const std::u16string& GetProvider() const { return provider; }
    const std::u16string& GetDescription() const { return description; }
    uint32_t GetLengthMs() const { return lengthMs; }
    // Added to positions when they are shown.
    uint32_t GetTimeOffsetMs() const { return timeOffsetMs; }
    uint32_t GetSampleRate() const { return sampleRate; }
    uint32_t GetChannels() const { return channels; }

    int32_t GetSectionCount() const { return static_cast<int32_t>(sections.size()); }
    // Out-of-range indices answer an empty title / 0.
    std::u16string GetSectionTitle(int32_t index) const;
    uint32_t GetSectionStart(int32_t index) const;
    const std::vector<Section>& GetSections() const { return sections; }

    int32_t GetPictureCount() const { return static_cast<int32_t>(pictures.size()); }
    uint32_t GetPictureStartTime(int32_t index) const;
    // Reads a picture's bytes from the file and checks the picture chunk's checksum:
    // ZQX_OK; ZQX_ERR_OUT_OF_RANGE for an index outside 0..count-1 (or a closed
    // object); ZQX_ERR_DAMAGED when the chunk fails its check (or the file changed
    // since it was opened); ZQX_ERR_NO_FILE, ZQX_ERR_IO, ZQX_ERR_OUT_OF_MEMORY.
    // bytes is replaced on success and left alone otherwise.
    int ReadPictureBytes(int32_t index, std::vector<uint8_t>& bytes) const;
    // As ReadPictureBytes, but empty on every failure.
    std::vector<uint8_t> GetPictureBytes(int32_t index) const;
    // The first picture's bytes, empty when the program has none.
    std::vector<uint8_t> GetCoverPicture() const { return GetPictureBytes(0); }
    const std::vector<Picture>& GetPictures() const { return pictures; }

private:
    bool open = false;
    std::string programId;
    int32_t fileType = 0;
    bool timeSpanFlag = false;
    uint32_t timeSpanStartMs = 0;
    uint32_t timeSpanEndMs = 0;
    std::u16string title;
    std::u16string author;
    std::u16string narrator;
    std::u16string provider;
    std::u16string description;
    uint32_t lengthMs = 0;
    uint32_t timeOffsetMs = 0;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    std::vector<Section> sections;
    std::vector<Picture> pictures;
    // What a picture read needs: the file, where the picture chunk lies with its
    // checksum, and where each picture's bytes begin.
    std::string pathUtf8;
    uint64_t pictureChunkOffset = 0;
    uint64_t pictureChunkBytes = 0;
    uint32_t pictureChunkCrc = 0;
    std::vector<uint64_t> pictureOffsets;
};
