#pragma once

#include "BookMetadata.h"
#include "ProgramPacker.h"

#include <string>
#include <vector>

namespace zqxauthor {

// One audio file of a book as its container (or a cue sheet beside it) describes it.
struct BookFile {
    std::string path;
    TagList tags;
    std::vector<RawChapter> chapters;
    std::int64_t durationMs = 0;
    std::vector<std::uint8_t> cover; // embedded picture, as stored
    // Pictures of chapters (an ID3 CHAP's APIC), startMs counted from the file's start.
    std::vector<PictureInput> chapterPictures;
    std::vector<std::string> warnings;
};

// Reads a file's tags, chapters and cover. An ID3v2 tag at its start gives
// the chapters its table of contents lists, with their pictures. A cue sheet
// beside it (same name with ".cue", or one whose FILE names it) gives the
// chapters instead of the file's own, since a listener put it there on purpose.
bool ProbeBookFile(const std::string& path, BookFile& out, std::string& error);

// The audio files of a folder and its subfolders (CD1/, Disc 2/: one book),
// probed and put in book order: disc number (the tag, else the number in the
// subfolder's name), then track number, then natural name order.
bool ProbeBookFolder(const std::string& folder, std::vector<BookFile>& out, std::string& error);

// Sections, fields and cover of a program made of these files in this order:
// each file its chapters as sections (when useChapters and it has them), else
// one section titled by its title tag or name. Fields come from the first
// file's tags, the title falling back to fallbackTitle. The cover is the
// first embedded JPEG or PNG, else cover.* or folder.* in pictureFolder.
struct BookPlan {
    ProgramFields fields;
    std::vector<SectionInput> sections;
    std::vector<PictureInput> pictures;
    std::vector<std::string> warnings;
};
BookPlan PlanBook(const std::vector<BookFile>& files, bool useChapters, const std::string& fallbackTitle,
                  const std::string& pictureFolder);

// Audio the book reader takes, by file name.
bool IsAudioFileName(const std::string& path);

// A JPEG or a PNG, by its first bytes: the pictures a program can hold.
bool IsPicture(const std::vector<std::uint8_t>& bytes);

// Cuts at most `bytes` bytes of UTF-8 without splitting a character.
std::string CutUtf8(std::string text, std::size_t bytes);
// A tag made fit to be a file or folder name: no "/", no control characters,
// no leading dots or blanks, at most 200 bytes (room for an extension and the
// writer's temporary suffix), never empty (then `fallback`).
std::string NameForFile(const std::string& text, const std::string& fallback);

} // namespace zqxauthor
