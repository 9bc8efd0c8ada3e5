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
        const auto utf8 = PathBytesFromUtf16(path);
        if (!utf8 || path.empty())
            return ZQX_ERR_BAD_ARGUMENT;
        ReadOnlyFile file;
        if (const int rc = file.Open(*utf8); rc != ZQX_OK)
            return rc;
        ProgramInfo info;
        if (const int rc = ReadProgramHead(file, info); rc != ZQX_OK)
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
        for (const PictureRecord& p : info.pictures) {
            pictures.push_back({p.startMs, p.kind, p.byteLength});
            pictureOffsets.push_back(p.offset);
        }
        pathUtf8 = *utf8;
        pictureChunkOffset = info.pictureChunk.payloadOffset;
        pictureChunkBytes = info.pictureChunk.payloadBytes;
        pictureChunkCrc = info.pictureChunk.crc;
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

int CTalvoMetadata::ReadPictureBytes(int32_t index, std::vector<uint8_t>& bytes) const
{
    try {
        if (index < 0 || size_t(index) >= pictures.size())
            return ZQX_ERR_OUT_OF_RANGE;
        ReadOnlyFile file;
        if (const int rc = file.Open(pathUtf8); rc != ZQX_OK)
            return rc;
        const Picture& wanted = pictures[size_t(index)];
        const PictureRecord picture{wanted.startMs, wanted.kind, wanted.byteLength,
                                    pictureOffsets[size_t(index)]};
        std::vector<uint8_t> read(picture.byteLength);
        const int rc = ReadPictureChunk(file, {pictureChunkOffset, pictureChunkBytes, pictureChunkCrc},
                                        &picture, read.data());
        if (rc == ZQX_OK)
            bytes = std::move(read);
        return rc;
    } catch (const std::bad_alloc&) {
        return ZQX_ERR_OUT_OF_MEMORY;
    } catch (...) {
        return ZQX_ERR_IO;
    }
}

std::vector<uint8_t> CTalvoMetadata::GetPictureBytes(int32_t index) const
{
    std::vector<uint8_t> bytes;
    ReadPictureBytes(index, bytes);
    return bytes;
}
