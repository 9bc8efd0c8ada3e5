#include "ProgramReader.h"

#include "ByteOrder.h"
#include "ContainerFormat.h"
#include "Crc32.h"
#include "zqx/zqxsdk.h"

#include <algorithm>
#include <array>
#include <new>

namespace zqx {
namespace {

static_assert(format::kChunkOrder[3] == format::kTagIndex && format::kChunkOrder[4] == format::kTagAudio,
              "the index is resolved against the audio chunk that follows it");

// The head is read through one window of the file.  A program's header,
// metadata and section chunks and the start of its picture table lie in its
// first page, so they cost one read together; each jump beyond (past a
// picture's bytes, to the chunks after a long index) costs one more.
constexpr size_t kWindowBytes = 4096;
// The picture chunk is checked in pieces of this size, so checking a large
// cover never holds more than one piece besides the picture asked for.
constexpr size_t kPictureChunkPieceBytes = 64 * 1024;

class FileWindow {
public:
    explicit FileWindow(const ReadOnlyFile& file) : file(file) {}
    FileWindow(const FileWindow&) = delete;
    FileWindow& operator=(const FileWindow&) = delete;

    uint64_t FileSize() const { return file.Size(); }

    // Copies size bytes at offset: from the window, refilled there when they fit
    // in one, or straight from the file.  ZQX_OK, ZQX_ERR_DAMAGED past the end, or ZQX_ERR_IO.
    int Read(uint64_t offset, void* out, size_t size)
    {
        if (size > bytes.size())
            return file.ReadAt(offset, out, size);
        if (!Holds(offset, size)) {
            if (offset > file.Size() || file.Size() - offset < size)
                return ZQX_ERR_DAMAGED;
            const size_t fill = static_cast<size_t>(std::min<uint64_t>(bytes.size(), file.Size() - offset));
            filled = 0;
            if (const int rc = file.ReadAt(offset, bytes.data(), fill); rc != ZQX_OK)
                return rc;
            start = offset;
            filled = fill;
        }
        std::copy_n(bytes.data() + (offset - start), size, static_cast<uint8_t*>(out));
        return ZQX_OK;
    }

    // The bytes at offset when all size of them are already in the window, else null.
    const uint8_t* Peek(uint64_t offset, uint64_t size) const
    {
        return Holds(offset, size) ? bytes.data() + (offset - start) : nullptr;
    }

private:
    bool Holds(uint64_t offset, uint64_t size) const
    {
        return offset >= start && offset - start <= filled && size <= filled - (offset - start);
    }

    const ReadOnlyFile& file;
    std::array<uint8_t, kWindowBytes> bytes;
    uint64_t start = 0;
    size_t filled = 0;
};

int ReadHeader(FileWindow& window, ProgramInfo& info)
{
    if (window.FileSize() < format::kHeaderBytes)
        return ZQX_ERR_DAMAGED;
    uint8_t h[format::kHeaderBytes];
    if (const int rc = window.Read(0, h, sizeof h); rc != ZQX_OK)
        return rc;
    if (!std::equal(format::kMagic.begin(), format::kMagic.end(), h))
        return ZQX_ERR_DAMAGED;
    // The version comes before the checksum: a newer header may be laid out differently.
    const uint16_t version = LoadLe16(h + format::kOffVersion);
    if (version > format::kVersion)
        return ZQX_ERR_NEWER_VERSION;
    if (version == 0 ||
        !ChecksumMatches(Crc32(0, h, format::kOffHeaderCrc), LoadLe32(h + format::kOffHeaderCrc)) ||
        LoadLe16(h + format::kOffHeaderBytes) != format::kHeaderBytes)
        return ZQX_ERR_DAMAGED;
    info.fileType = static_cast<int32_t>(LoadLe32(h + format::kOffFileType));
    info.sampleRate = LoadLe32(h + format::kOffSampleRate);
    info.channels = LoadLe32(h + format::kOffChannels);
    info.totalSamples = LoadLe64(h + format::kOffTotalSamples);
    info.lengthMs = LoadLe32(h + format::kOffLengthMs);
    info.preSkip = LoadLe32(h + format::kOffPreSkip);
    if (const int rc = CheckStreamFormat(info.fileType, info.sampleRate, info.channels); rc != ZQX_OK)
        return rc;
    if (info.totalSamples == 0 || info.lengthMs != SamplesToMs(info.totalSamples, info.sampleRate) ||
        (info.preSkip != 0 && info.fileType != ZQX_TYPE_OPUS))
        return ZQX_ERR_DAMAGED;
    return ZQX_OK;
}

int ReadChunkHeader(FileWindow& window, uint64_t offset, uint32_t tag, ChunkExtent& chunk)
{
    if (window.FileSize() - offset < format::kChunkHeaderBytes)
        return ZQX_ERR_DAMAGED;
    uint8_t h[format::kChunkHeaderBytes];
    if (const int rc = window.Read(offset, h, sizeof h); rc != ZQX_OK)
        return rc;
    chunk.payloadOffset = offset + format::kChunkHeaderBytes;
    chunk.crc = LoadLe32(h + 4);
    chunk.payloadBytes = LoadLe64(h + 8);
    if (LoadLe32(h) != tag || chunk.payloadBytes > window.FileSize() - chunk.payloadOffset)
        return ZQX_ERR_DAMAGED;
    return ZQX_OK;
}

// Points data at the chunk's payload, in the window when it lies there, else
// read into scratch, and checks it against the chunk's CRC.
int VerifiedPayload(FileWindow& window, const ChunkExtent& chunk, std::vector<uint8_t>& scratch,
                    const uint8_t*& data)
{
    data = window.Peek(chunk.payloadOffset, chunk.payloadBytes);
    if (!data) {
        try {
            scratch.resize(chunk.payloadBytes);
        } catch (const std::bad_alloc&) {
            return ZQX_ERR_OUT_OF_MEMORY;
        }
        if (const int rc = window.Read(chunk.payloadOffset, scratch.data(), scratch.size()); rc != ZQX_OK)
            return rc;
        data = scratch.data();
    }
    return ChecksumMatches(Crc32(0, data, chunk.payloadBytes), chunk.crc) ? ZQX_OK : ZQX_ERR_DAMAGED;
}

bool ParseMetadata(const uint8_t* payload, size_t size, ProgramInfo& info)
{
    ByteSource src(payload, size);
    src.U32(info.timeOffsetMs);
    src.U32(info.spanFlag);
    src.U32(info.spanStartMs);
    src.U32(info.spanEndMs);
    std::string* texts[format::kMetadataStringCount] = {&info.programId, &info.title,    &info.author,
                                                        &info.narrator,  &info.provider, &info.description};
    for (std::string* text : texts)
        src.Text(*text, format::kMaxTextBytes);
    return src.Ok() && src.Remaining() == 0 && info.spanFlag <= 1 && info.spanStartMs <= info.spanEndMs;
}

bool ParseSections(const uint8_t* payload, size_t size, ProgramInfo& info)
{
    ByteSource src(payload, size);
    uint32_t count = 0;
    // Each section takes at least 8 bytes, which bounds a damaged count.
    if (!src.U32(count) || count > src.Remaining() / 8)
        return false;
    info.sections.resize(count);
    uint32_t previous = 0;
    for (SectionRecord& s : info.sections) {
        if (!src.U32(s.startMs) || !src.Text(s.title, format::kMaxTextBytes))
            return false;
        if (s.startMs < previous || s.startMs > info.lengthMs)
            return false;
        previous = s.startMs;
    }
    return src.Remaining() == 0;
}

// Walks the picture table from entry to entry, stepping over each picture's
// bytes without reading them; the entries must tile the payload exactly.
int ReadPictureTable(FileWindow& window, const ChunkExtent& chunk, ProgramInfo& info)
{
    const uint64_t end = chunk.payloadOffset + chunk.payloadBytes;
    uint8_t field[format::kPictureEntryBytes];
    if (chunk.payloadBytes < 4)
        return ZQX_ERR_DAMAGED;
    if (const int rc = window.Read(chunk.payloadOffset, field, 4); rc != ZQX_OK)
        return rc;
    const uint32_t count = LoadLe32(field);
    uint64_t at = chunk.payloadOffset + 4;
    // Each picture takes at least its entry, which bounds a damaged count.
    if (count > (end - at) / format::kPictureEntryBytes)
        return ZQX_ERR_DAMAGED;
    for (uint32_t i = 0; i < count; ++i) {
        if (end - at < format::kPictureEntryBytes)
            return ZQX_ERR_DAMAGED;
        if (const int rc = window.Read(at, field, sizeof field); rc != ZQX_OK)
            return rc;
        PictureRecord p;
        p.startMs = LoadLe32(field);
        p.kind = LoadLe32(field + 4);
        p.byteLength = LoadLe32(field + 8);
        p.offset = at + format::kPictureEntryBytes;
        if ((p.kind != format::kPictureJpeg && p.kind != format::kPicturePng) ||
            p.byteLength > format::kMaxPictureBytes || p.byteLength > end - p.offset)
            return ZQX_ERR_DAMAGED;
        info.pictures.push_back(p);
        at = p.offset + p.byteLength;
    }
    return at == end ? ZQX_OK : ZQX_ERR_DAMAGED;
}

int ParseIndex(const std::vector<uint8_t>& payload, const ProgramInfo& info,
               std::vector<PacketEntry>& packets)
{
    const ChunkExtent& audio = info.audioChunk;
    if (payload.size() < 4)
        return ZQX_ERR_DAMAGED;
    const uint32_t count = LoadLe32(payload.data());
    if (count == 0 || (payload.size() - 4) / format::kIndexEntryBytes != count ||
        (payload.size() - 4) % format::kIndexEntryBytes != 0)
        return ZQX_ERR_DAMAGED;
    try {
        packets.resize(count);
    } catch (const std::bad_alloc&) {
        return ZQX_ERR_OUT_OF_MEMORY;
    }
    uint64_t offset = audio.payloadOffset;
    uint64_t sample = 0;
    const uint8_t* e = payload.data() + 4;
    for (uint32_t i = 0; i < count; ++i, e += format::kIndexEntryBytes) {
        PacketEntry& p = packets[i];
        p.bytes = LoadLe16(e);
        p.samples = LoadLe16(e + 2);
        p.crc = LoadLe32(e + 4);
        p.offset = offset;
        p.startSample = sample;
        if (!PacketShapeValid(info, p.bytes, p.samples, i == 0 ? info.preSkip : 0))
            return ZQX_ERR_DAMAGED;
        offset += p.bytes;
        sample += p.samples;
    }
    // Packets tile the audio chunk exactly and deliver exactly the header's total.
    if (offset != audio.payloadOffset + audio.payloadBytes || sample != info.totalSamples)
        return ZQX_ERR_DAMAGED;
    return ZQX_OK;
}

} // namespace

int ReadProgramHead(const ReadOnlyFile& file, ProgramInfo& info)
{
    info = ProgramInfo{};
    FileWindow window(file);
    if (const int rc = ReadHeader(window, info); rc != ZQX_OK)
        return rc;
    uint64_t offset = format::kHeaderBytes;
    ChunkExtent chunks[format::kChunkOrder.size()];
    std::vector<uint8_t> scratch;
    for (size_t i = 0; i < format::kChunkOrder.size(); ++i) {
        const uint32_t tag = format::kChunkOrder[i];
        if (const int rc = ReadChunkHeader(window, offset, tag, chunks[i]); rc != ZQX_OK)
            return rc;
        offset = chunks[i].payloadOffset + chunks[i].payloadBytes;
        if (tag == format::kTagPictures) {
            if (const int rc = ReadPictureTable(window, chunks[i], info); rc != ZQX_OK)
                return rc;
        } else if (tag == format::kTagMetadata || tag == format::kTagSections) {
            const uint8_t* payload = nullptr;
            if (const int rc = VerifiedPayload(window, chunks[i], scratch, payload); rc != ZQX_OK)
                return rc;
            const size_t size = static_cast<size_t>(chunks[i].payloadBytes);
            const bool ok = tag == format::kTagMetadata ? ParseMetadata(payload, size, info)
                                                        : ParseSections(payload, size, info);
            if (!ok)
                return ZQX_ERR_DAMAGED;
        }
    }
    info.pictureChunk = chunks[2];
    info.indexChunk = chunks[3];
    info.audioChunk = chunks[4];
    // Anything after the audio chunk means the file was spliced or appended to.
    return offset == file.Size() ? ZQX_OK : ZQX_ERR_DAMAGED;
}

int ReadIndex(const ReadOnlyFile& file, const ProgramInfo& info, std::vector<PacketEntry>& packets)
{
    const ChunkExtent& index = info.indexChunk;
    std::vector<uint8_t> payload;
    try {
        payload.resize(index.payloadBytes);
    } catch (const std::bad_alloc&) {
        return ZQX_ERR_OUT_OF_MEMORY;
    }
    if (const int rc = file.ReadAt(index.payloadOffset, payload.data(), payload.size()); rc != ZQX_OK)
        return rc;
    if (!ChecksumMatches(Crc32(0, payload.data(), payload.size()), index.crc))
        return ZQX_ERR_DAMAGED;
    return ParseIndex(payload, info, packets);
}

int ReadPictureChunk(const ReadOnlyFile& file, const ChunkExtent& chunk, const PictureRecord* picture,
                     uint8_t* out)
{
    const uint64_t end = chunk.payloadOffset + chunk.payloadBytes;
    if (picture && (picture->offset < chunk.payloadOffset || picture->offset > end ||
                    picture->byteLength > end - picture->offset))
        return ZQX_ERR_DAMAGED;
    std::vector<uint8_t> piece(
        static_cast<size_t>(std::min<uint64_t>(kPictureChunkPieceBytes, chunk.payloadBytes)));
    uint32_t crc = 0;
    for (uint64_t at = chunk.payloadOffset; at < end;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(piece.size(), end - at));
        if (const int rc = file.ReadAt(at, piece.data(), n); rc != ZQX_OK)
            return rc;
        crc = Crc32(crc, piece.data(), n);
        if (picture) {
            // Copy out whichever bytes of this piece lie inside the picture.
            const uint64_t from = std::max(at, picture->offset);
            const uint64_t to = std::min(at + n, picture->offset + picture->byteLength);
            if (from < to)
                std::copy_n(piece.data() + (from - at), to - from, out + (from - picture->offset));
        }
        at += n;
    }
    return ChecksumMatches(crc, chunk.crc) ? ZQX_OK : ZQX_ERR_DAMAGED;
}

int ReadPacket(const ReadOnlyFile& file, const PacketEntry& packet, uint8_t* out)
{
    if (const int rc = file.ReadAt(packet.offset, out, packet.bytes); rc != ZQX_OK)
        return rc;
    return ChecksumMatches(Crc32(0, out, packet.bytes), packet.crc) ? ZQX_OK : ZQX_ERR_DAMAGED;
}

} // namespace zqx
