#pragma once
// CTalvoMetadata: the descriptive side of one program file, read without opening
// it for playback.  OpenZQXFile reads and verifies the header and the metadata,
// section, picture and index chunks; it never reads the audio itself, so
// scanning a folder of programs stays cheap.  The object is a plain value: copying it copies every
// field, and it holds no OS resource after OpenZQXFile returns.

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
        std::vector<uint8_t> bytes;
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
    // Empty for an out-of-range index.
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
};
