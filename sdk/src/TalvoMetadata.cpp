#include "zqx/TalvoMetadata.h"

#include "FileAccess.h"
#include "ProgramReader.h"
#include "TextEncoding.h"

#include <new>

using namespace zqx;

int CTalvoMetadata::OpenZQXFile(const std::u16string& path)
{
    try {
        CloseZQXFile();
        const auto utf8 = Utf16ToUtf8(path);
        if (!utf8 || path.empty())
            return ZQX_ERR_BAD_ARGUMENT;
        ReadOnlyFile file;
        if (const int rc = file.Open(*utf8); rc != ZQX_OK)
            return rc;
        ProgramInfo info;
        // The index is verified too, so a file this accepts also opens for
        // playback unless its audio bytes are damaged; the audio is not read.
        std::vector<PacketEntry> packets;
        if (const int rc = ReadProgram(file, info, &packets); rc != ZQX_OK)
            return rc;
        programId = info.programId;
        fileType = info.fileType;
        timeSpanFlag = info.spanFlag != 0;
        timeSpanStartMs = info.spanStartMs;
        timeSpanEndMs = info.spanEndMs;
        title = Utf8ToUtf16(info.title);
        author = Utf8ToUtf16(info.author);
        narrator = Utf8ToUtf16(info.narrator);
        provider = Utf8ToUtf16(info.provider);
        description = Utf8ToUtf16(info.description);
        lengthMs = info.lengthMs;
        timeOffsetMs = info.timeOffsetMs;
        sampleRate = info.sampleRate;
        channels = info.channels;
        for (SectionRecord& s : info.sections)
            sections.push_back({s.startMs, Utf8ToUtf16(s.title)});
        for (PictureRecord& p : info.pictures)
            pictures.push_back({p.startMs, p.kind, std::move(p.bytes)});
        open = true;
        return ZQX_OK;
    } catch (const std::bad_alloc&) {
        CloseZQXFile();
        return ZQX_ERR_OUT_OF_MEMORY;
    } catch (...) {
        CloseZQXFile();
        return ZQX_ERR_IO;
    }
}

void CTalvoMetadata::CloseZQXFile()
{
    *this = CTalvoMetadata{};
}

std::u16string CTalvoMetadata::GetSectionTitle(int32_t index) const
{
    return index >= 0 && size_t(index) < sections.size() ? sections[size_t(index)].title : std::u16string{};
}

uint32_t CTalvoMetadata::GetSectionStart(int32_t index) const
{
    return index >= 0 && size_t(index) < sections.size() ? sections[size_t(index)].startMs : 0;
}

uint32_t CTalvoMetadata::GetPictureStartTime(int32_t index) const
{
    return index >= 0 && size_t(index) < pictures.size() ? pictures[size_t(index)].startMs : 0;
}

std::vector<uint8_t> CTalvoMetadata::GetPictureBytes(int32_t index) const
{
    return index >= 0 && size_t(index) < pictures.size() ? pictures[size_t(index)].bytes
                                                         : std::vector<uint8_t>{};
}
