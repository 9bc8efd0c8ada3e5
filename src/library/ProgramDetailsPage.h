#pragma once
// A program's details page: a small HTML page with its author, narrator,
// provider, size, running time, audio format and location, its description
// under the table, and its cover picture beside the rows.  The page and the
// picture are files named after the program key ("KEY.html", "KEY.jpg"),
// written fresh each time the page is shown, so that the HTML viewer shows
// them through file addresses.
//
// Plain logic without widgets; the dialog that shows the page is
// ProgramDetailsDialog.h.
#include "library/ProgramEntry.h"

#include <QString>
#include <cstdint>
#include <vector>

namespace talvo {

// Everything the page shows, taken from one program.
struct ProgramDetails {
    QString author;
    QString narrator;
    QString provider;
    QString description;
    std::uint32_t sizeBytes = 0; // the file's size, low 32 bits; 0 when it cannot be found
    std::uint32_t runningTimeMs = 0;
    std::int32_t fileType = 0;
    bool inMainMemory = true;
    std::vector<std::uint8_t> cover; // the first picture's bytes as the program holds them
};

// Gathers the page's texts, the file's size and the cover of entry.
ProgramDetails GatherProgramDetails(const ProgramEntry& entry);

// "%ld Bytes", "%ld KB" or "%ld.%ld MB".  Above 1 MB the digit after the point
// is the remaining whole kilobytes divided by 100, so it runs from 0 to 10
// ("1.10 MB" for 1 MB and 1,023 KB): the number listeners have always seen.
// The program list writes the free and total storage with it too.
QString SizeText(std::uint64_t bytes);

// "Format 1" to "Format 5" for file types 1 to 5, else "Unknown Format".
QString AudioFormatText(std::int32_t fileType);

// Where the page and picture files of a program go: the player's own folder
// when it may be written, else the player's data folder.
QString DetailsFolder(const QString& programFolder);

struct DetailsPageFiles {
    QString page;
    QString picture; // empty when the page has no picture
};

// Deletes the program's old page and picture in folder, writes the cover
// (when there is one that can be shown) and the page as UTF-16LE without a
// byte-order mark.  files->page names the page even when it cannot be
// written; the result is then false, errorText holds the system's reason and
// the trace output has the details.
bool WriteDetailsPage(const ProgramDetails& details, const QString& key, const QString& folder,
                      DetailsPageFiles* files, QString* errorText = nullptr);

} // namespace talvo
