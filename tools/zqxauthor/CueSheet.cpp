#include "CueSheet.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <sstream>

namespace zqxauthor {
namespace {

constexpr int kFramesPerSecond = 75;

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// The rest of a line after its command: a quoted string, or the bare words.
std::string Argument(std::istringstream& line)
{
    std::string rest;
    std::getline(line >> std::ws, rest);
    if (!rest.empty() && rest.front() == '"') {
        const auto close = rest.find('"', 1);
        return rest.substr(1, close == std::string::npos ? std::string::npos : close - 1);
    }
    return rest.substr(0, rest.find_last_not_of(" \t") + 1);
}

// FILE "name" TYPE: the name without its type word.
std::string FileName(std::istringstream& line)
{
    std::string arg = Argument(line);
    if (const auto space = arg.rfind(' ');
        space != std::string::npos && line.str().find('"') == std::string::npos)
        arg.resize(space);
    return std::filesystem::path(arg).filename().string();
}

bool ParseIndexTime(const std::string& text, std::int64_t& ms)
{
    int part[3] = {};
    const char* p = text.data();
    const char* end = p + text.size();
    for (int i = 0; i < 3; ++i) {
        auto [next, ec] = std::from_chars(p, end, part[i]);
        if (ec != std::errc() || part[i] < 0 || (i < 2 && (next == end || *next != ':')))
            return false;
        p = i < 2 ? next + 1 : next;
    }
    if (p != end || part[1] >= 60 || part[2] >= kFramesPerSecond)
        return false;
    ms = (std::int64_t(part[0]) * 60 + part[1]) * 1000 + std::int64_t(part[2]) * 1000 / kFramesPerSecond;
    return true;
}

} // namespace

CueSheet ParseCueSheet(std::string_view text, const std::string& audioFileName)
{
    CueSheet sheet;
    std::istringstream in{std::string(text)};
    std::string raw;
    std::vector<std::pair<std::string, RawChapter>> tracks; // the FILE each is under
    std::string file;
    bool inTrack = false;
    int lineNo = 0;
    while (std::getline(in, raw)) {
        ++lineNo;
        std::istringstream line(raw);
        std::string command;
        line >> command;
        command = Lower(command);
        if (command == "file") {
            file = FileName(line);
            inTrack = false;
        } else if (command == "track") {
            tracks.push_back({file, RawChapter{-1, -1, {}}});
            inTrack = true;
        } else if (command == "title" || command == "performer") {
            const std::string value = Argument(line);
            if (inTrack && command == "title")
                tracks.back().second.title = value;
            else if (!inTrack)
                sheet.tags.push_back({command == "title" ? "album" : "album_artist", value});
        } else if (command == "index" && inTrack) {
            int number = -1;
            std::string time;
            line >> number >> time;
            if (number == 1 && !ParseIndexTime(time, tracks.back().second.startMs))
                sheet.warnings.push_back("cue sheet line " + std::to_string(lineNo) +
                                         ": cannot read the time '" + time + "' (mm:ss:ff)");
        }
    }
    std::size_t files = 0;
    for (std::size_t i = 0; i < tracks.size(); ++i)
        files += i == 0 || tracks[i].first != tracks[i - 1].first;
    const std::string wanted = Lower(audioFileName);
    for (auto& [name, chapter] : tracks) {
        if (files > 1 && Lower(name) != wanted)
            continue;
        if (chapter.startMs < 0) {
            sheet.warnings.push_back("cue sheet track '" + chapter.title + "' has no INDEX 01; skipped");
            continue;
        }
        sheet.chapters.push_back(std::move(chapter));
    }
    return sheet;
}

} // namespace zqxauthor
