#include "ProgramReader.h"

#include "ByteOrder.h"
#include "ContainerFormat.h"
#include "Crc32.h"
#include "zqx/zqxsdk.h"

#include <algorithm>
#include <new>

namespace zqx {
namespace {

static_assert(format::kChunkOrder[3] == format::kTagIndex && format::kChunkOrder[4] == format::kTagAudio,
              "the index is resolved against the audio chunk that follows it");

struct ChunkExtent {
    uint64_t payloadOffset = 0;
    uint64_t payloadBytes = 0;
    uint32_t crc = 0;
};

int ReadHeader(const ReadOnlyFile& file, ProgramInfo& info)
{
    if (file.Size() < format::kHeaderBytes)
        return ZQX_ERR_DAMAGED;
    uint8_t h[format::kHeaderBytes];
    if (const int rc = file.ReadAt(0, h, sizeof h); rc != ZQX_OK)
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

int ReadChunkHeader(const ReadOnlyFile& file, uint64_t offset, uint32_t tag, ChunkExtent& chunk)
{
    if (file.Size() - offset < format::kChunkHeaderBytes)
        return ZQX_ERR_DAMAGED;
    uint8_t h[format::kChunkHeaderBytes];
    if (const int rc = file.ReadAt(offset, h, sizeof h); rc != ZQX_OK)
        return rc;
    chunk.payloadOffset = offset + format::kChunkHeaderBytes;
    chunk.crc = LoadLe32(h + 4);
    chunk.payloadBytes = LoadLe64(h + 8);
    if (LoadLe32(h) != tag || chunk.payloadBytes > file.Size() - chunk.payloadOffset)
        return ZQX_ERR_DAMAGED;
    return ZQX_OK;
}

int ReadPayload(const ReadOnlyFile& file, const ChunkExtent& chunk, std::vector<uint8_t>& out)
{
    try {
        out.resize(chunk.payloadBytes);
    } catch (const std::bad_alloc&) {
        return ZQX_ERR_OUT_OF_MEMORY;
    }
    if (const int rc = file.ReadAt(chunk.payloadOffset, out.data(), out.size()); rc != ZQX_OK)
        return rc;
    return ChecksumMatches(Crc32(0, out.data(), out.size()), chunk.crc) ? ZQX_OK : ZQX_ERR_DAMAGED;
}

bool ParseMetadata(const std::vector<uint8_t>& payload, ProgramInfo& info)
{
    ByteSource src(payload.data(), payload.size());
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

bool ParseSections(const std::vector<uint8_t>& payload, ProgramInfo& info)
{
    ByteSource src(payload.data(), payload.size());
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

bool ParsePictures(const std::vector<uint8_t>& payload, ProgramInfo& info)
{
    ByteSource src(payload.data(), payload.size());
    uint32_t count = 0;
    if (!src.U32(count) || count > src.Remaining() / 12)
        return false;
    info.pictures.resize(count);
    for (PictureRecord& p : info.pictures) {
        uint32_t size = 0;
        if (!src.U32(p.startMs) || !src.U32(p.kind) || !src.U32(size) || size > format::kMaxPictureBytes ||
            !src.Blob(p.bytes, size))
            return false;
        if (p.kind != format::kPictureJpeg && p.kind != format::kPicturePng)
            return false;
    }
    return src.Remaining() == 0;
}

int ParseIndex(const std::vector<uint8_t>& payload, const ProgramInfo& info, const ChunkExtent& audio,
               std::vector<PacketEntry>& packets)
{
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

int ReadProgram(const ReadOnlyFile& file, ProgramInfo& info, std::vector<PacketEntry>* packets)
{
    info = ProgramInfo{};
    if (const int rc = ReadHeader(file, info); rc != ZQX_OK)
        return rc;
    uint64_t offset = format::kHeaderBytes;
    ChunkExtent chunks[format::kChunkOrder.size()];
    std::vector<uint8_t> payload;
    for (size_t i = 0; i < format::kChunkOrder.size(); ++i) {
        const uint32_t tag = format::kChunkOrder[i];
        if (const int rc = ReadChunkHeader(file, offset, tag, chunks[i]); rc != ZQX_OK)
            return rc;
        offset = chunks[i].payloadOffset + chunks[i].payloadBytes;
        // The index is resolved against the audio chunk, so it is parsed after the loop.
        const bool parsedHere =
            tag == format::kTagMetadata || tag == format::kTagSections || tag == format::kTagPictures;
        if (!parsedHere)
            continue;
        if (const int rc = ReadPayload(file, chunks[i], payload); rc != ZQX_OK)
            return rc;
        bool ok = false;
        if (tag == format::kTagMetadata)
            ok = ParseMetadata(payload, info);
        else if (tag == format::kTagSections)
            ok = ParseSections(payload, info);
        else
            ok = ParsePictures(payload, info);
        if (!ok)
            return ZQX_ERR_DAMAGED;
    }
    const ChunkExtent& index = chunks[3];
    const ChunkExtent& audio = chunks[4];
    info.audioOffset = audio.payloadOffset;
    info.audioBytes = audio.payloadBytes;
    info.audioCrc = audio.crc;
    if (packets) {
        if (const int rc = ReadPayload(file, index, payload); rc != ZQX_OK)
            return rc;
        if (const int rc = ParseIndex(payload, info, audio, *packets); rc != ZQX_OK)
            return rc;
    }
    // Anything after the audio chunk means the file was spliced or appended to.
    return offset == file.Size() ? ZQX_OK : ZQX_ERR_DAMAGED;
}

int ReadPacket(const ReadOnlyFile& file, const PacketEntry& packet, uint8_t* out)
{
    if (const int rc = file.ReadAt(packet.offset, out, packet.bytes); rc != ZQX_OK)
        return rc;
    return ChecksumMatches(Crc32(0, out, packet.bytes), packet.crc) ? ZQX_OK : ZQX_ERR_DAMAGED;
}

} // namespace zqx
