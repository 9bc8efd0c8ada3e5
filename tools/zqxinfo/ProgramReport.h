#pragma once
// Everything zqxinfo tells about one program file, gathered through the SDK's
// public API only, and its two renderings (text and JSON).

#include <cstdint>
#include <string>
#include <vector>

struct ProgramReport {
    std::string path;
    int32_t status = 0; // open status, then the audio check's
    bool intact = false;
    int32_t fileType = 0;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    uint32_t lengthMs = 0;
    std::string programId, title, author, narrator, provider, description; // UTF-8
    uint32_t timeOffsetMs = 0;
    bool spanFlag = false;
    uint32_t spanStartMs = 0;
    uint32_t spanEndMs = 0;
    struct Section {
        uint32_t startMs;
        std::string title;
    };
    std::vector<Section> sections;
    struct Picture {
        uint32_t startMs;
        uint32_t kind;
        size_t bytes;
    };
    std::vector<Picture> pictures;
};

ProgramReport InspectProgram(const std::string& utf8Path);
std::string RenderText(const ProgramReport& report);
std::string RenderJson(const ProgramReport& report);
