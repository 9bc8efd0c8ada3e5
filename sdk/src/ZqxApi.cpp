// The C entry points.  Each one catches everything: no exception leaves the SDK.

#include "zqx/zqxsdk.h"

#include "ContainerFormat.h"
#include "Crc32.h"
#include "FileAccess.h"
#include "PacketDecoder.h"
#include "PositionFile.h"
#include "ProgramReader.h"
#include "TextEncoding.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <new>
#include <optional>

namespace zqx {
namespace {

struct StatusEntry {
    int32_t status;
    const char* name;
};
constexpr std::array<StatusEntry, 17> kStatusNames = {{
    {ZQX_OK, "ZQX_OK"},
    {ZQX_ERR_BAD_ARGUMENT, "ZQX_ERR_BAD_ARGUMENT"},
    {ZQX_ERR_BAD_HANDLE, "ZQX_ERR_BAD_HANDLE"},
    {ZQX_ERR_NO_FILE, "ZQX_ERR_NO_FILE"},
    {ZQX_ERR_IO, "ZQX_ERR_IO"},
    {ZQX_ERR_OUT_OF_MEMORY, "ZQX_ERR_OUT_OF_MEMORY"},
    {ZQX_ERR_TOO_MANY_HANDLES, "ZQX_ERR_TOO_MANY_HANDLES"},
    {ZQX_ERR_DAMAGED, "ZQX_ERR_DAMAGED"},
    {ZQX_ERR_NEWER_VERSION, "ZQX_ERR_NEWER_VERSION"},
    {ZQX_ERR_OUT_OF_RANGE, "ZQX_ERR_OUT_OF_RANGE"},
    {ZQX_ERR_BUFFER_TOO_SMALL, "ZQX_ERR_BUFFER_TOO_SMALL"},
    {ZQX_ERR_NOT_DECODABLE, "ZQX_ERR_NOT_DECODABLE"},
    {ZQX_ERR_DECODE, "ZQX_ERR_DECODE"},
    {ZQX_ERR_UNSUPPORTED, "ZQX_ERR_UNSUPPORTED"},
    {ZQX_ERR_STATE, "ZQX_ERR_STATE"},
    {ZQX_ERR_END_OF_AUDIO, "ZQX_ERR_END_OF_AUDIO"},
    {ZQX_ERR_LAST_FRAME, "ZQX_ERR_LAST_FRAME"},
}};

// Handles pack a slot (low 8 bits, 1-based so a handle is never 0) and the
// slot's generation, so a closed handle stays invalid after its slot is reused.
constexpr size_t kMaxHandles = 64;
constexpr uint32_t kSlotBits = 8;
static_assert(kMaxHandles < (1u << kSlotBits));
// Opus needs some history to converge after a jump; 80 ms of packets before the
// target are decoded and thrown away.
constexpr uint32_t kOpusPreRollPackets = 4;
// A path longer than this is surely not NUL-terminated.
constexpr size_t kMaxPathUnits = 32768;

struct OpenProgram {
    std::mutex lock;
    std::string path;
    ReadOnlyFile file;
    ProgramInfo info;
    std::vector<PacketEntry> packets;
    size_t next = 0;                    // index of the next packet to deliver
    int64_t lastDelivered = -1;         // index of the packet last handed out
    int64_t lastDecoded = -1;           // index of the packet the decoder's history ends with
    std::vector<size_t> sectionPackets; // packet holding each section's start
    PacketDecoder decoder;
    std::vector<uint8_t> packetBuffer;
    std::vector<uint8_t> pcmScratch;
};

std::mutex tableLock;
std::array<std::shared_ptr<OpenProgram>, kMaxHandles> slots;
std::array<uint32_t, kMaxHandles> generations{};

template <typename F> int32_t Guarded(F body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return ZQX_ERR_OUT_OF_MEMORY;
    } catch (...) {
        return ZQX_ERR_IO;
    }
}

std::shared_ptr<OpenProgram> Lookup(ZQXHANDLE h)
{
    const uint32_t slot = (h & ((1u << kSlotBits) - 1)) - 1;
    std::lock_guard guard(tableLock);
    if (h == 0 || slot >= kMaxHandles || !slots[slot] || generations[slot] != (h >> kSlotBits))
        return nullptr;
    return slots[slot];
}

template <typename F> int32_t WithProgram(ZQXHANDLE h, F body) noexcept
{
    return Guarded([&]() -> int32_t {
        const auto program = Lookup(h);
        if (!program)
            return ZQX_ERR_BAD_HANDLE;
        std::lock_guard guard(program->lock);
        return body(*program);
    });
}

size_t PacketAtSample(const OpenProgram& p, uint64_t sample)
{
    const auto after = std::upper_bound(p.packets.begin(), p.packets.end(), sample,
                                        [](uint64_t s, const PacketEntry& e) { return s < e.startSample; });
    return static_cast<size_t>(after - p.packets.begin()) - 1;
}

void SeekTo(OpenProgram& p, uint32_t ms)
{
    if (ms >= p.info.lengthMs) {
        p.next = p.packets.size();
        return;
    }
    p.next = PacketAtSample(p, MsToSamples(ms, p.info.sampleRate));
}

uint32_t PositionMs(const OpenProgram& p)
{
    if (p.next >= p.packets.size())
        return p.info.lengthMs;
    return SamplesToMs(p.packets[p.next].startSample, p.info.sampleRate);
}

std::optional<std::string> PathFromUtf16(const char16_t* path)
{
    size_t n = 0;
    while (n < kMaxPathUnits && path[n] != 0)
        ++n;
    if (n == 0 || n == kMaxPathUnits)
        return std::nullopt;
    return PathBytesFromUtf16(std::u16string(path, n));
}

int32_t OpenProgramFile(const char16_t* widePath, std::shared_ptr<OpenProgram>& out)
{
    const auto path = PathFromUtf16(widePath);
    if (!path)
        return ZQX_ERR_BAD_ARGUMENT;
    auto p = std::make_shared<OpenProgram>();
    p->path = *path;
    if (const int rc = p->file.Open(p->path); rc != ZQX_OK)
        return rc;
    // Opening to play checks everything but the audio bytes, so a damaged file is
    // refused here, before it is listened to; the picture bytes are checked and
    // then left on disk until they are asked for.
    if (const int rc = ReadProgramHead(p->file, p->info); rc != ZQX_OK)
        return rc;
    if (const int rc = ReadPictureChunk(p->file, p->info.pictureChunk, nullptr, nullptr); rc != ZQX_OK)
        return rc;
    if (const int rc = ReadIndex(p->file, p->info, p->packets); rc != ZQX_OK)
        return rc;
    if (p->info.fileType != ZQX_TYPE_MP3) {
        if (const int rc = p->decoder.Init(p->info); rc != ZQX_OK)
            return rc;
    }
    p->packetBuffer.resize(ZQX_MAX_BLOCK_BYTES);
    for (const SectionRecord& s : p->info.sections)
        p->sectionPackets.push_back(s.startMs >= p->info.lengthMs
                                        ? p->packets.size()
                                        : PacketAtSample(*p, MsToSamples(s.startMs, p->info.sampleRate)));
    if (const auto saved = LoadPosition(p->path); saved && *saved <= p->info.lengthMs)
        SeekTo(*p, *saved);
    out = std::move(p);
    return ZQX_OK;
}

// Brings the Opus decoder's history up to the packet before `index`.
void PrepareOpusHistory(OpenProgram& p, size_t index)
{
    if (p.lastDecoded == static_cast<int64_t>(index) - 1)
        return;
    p.decoder.Reset();
    p.lastDecoded = -1;
    p.pcmScratch.resize(size_t(p.info.sampleRate) * format::kOpusMaxPacketMs / 1000 * p.info.channels * 2);
    std::vector<uint8_t> packet(ZQX_MAX_BLOCK_BYTES);
    for (size_t i = index > kOpusPreRollPackets ? index - kOpusPreRollPackets : 0; i < index; ++i) {
        uint32_t produced = 0;
        if (ReadPacket(p.file, p.packets[i], packet.data()) != ZQX_OK)
            return;
        p.decoder.Decode(packet.data(), p.packets[i].bytes, 0, 0, p.pcmScratch.data(),
                         static_cast<uint32_t>(p.pcmScratch.size()), &produced);
    }
}

} // namespace
} // namespace zqx

using namespace zqx;

extern "C" {

const char* ZQXStatusName(int32_t status)
{
    for (const StatusEntry& e : kStatusNames)
        if (e.status == status)
            return e.name;
    return "ZQX_UNKNOWN_STATUS";
}

uint32_t ZQXGetVersion(void)
{
    return ZQX_SDK_VERSION;
}

int32_t ZQXOpenFileWinW(ZQXHANDLE* out, const char16_t* path)
{
    return Guarded([&]() -> int32_t {
        if (!out || !path)
            return ZQX_ERR_BAD_ARGUMENT;
        *out = 0;
        std::shared_ptr<OpenProgram> program;
        if (const int32_t rc = OpenProgramFile(path, program); rc != ZQX_OK)
            return rc;
        std::lock_guard guard(tableLock);
        for (uint32_t slot = 0; slot < kMaxHandles; ++slot) {
            if (slots[slot])
                continue;
            generations[slot] = (generations[slot] + 1) & ((1u << (32 - kSlotBits)) - 1);
            if (generations[slot] == 0)
                generations[slot] = 1;
            slots[slot] = std::move(program);
            *out = (generations[slot] << kSlotBits) | (slot + 1);
            return ZQX_OK;
        }
        return ZQX_ERR_TOO_MANY_HANDLES;
    });
}

int32_t ZQXCloseFile(ZQXHANDLE h)
{
    return Guarded([&]() -> int32_t {
        std::shared_ptr<OpenProgram> closing;
        {
            const uint32_t slot = (h & ((1u << kSlotBits) - 1)) - 1;
            std::lock_guard guard(tableLock);
            if (h == 0 || slot >= kMaxHandles || !slots[slot] || generations[slot] != (h >> kSlotBits))
                return ZQX_ERR_BAD_HANDLE;
            closing = std::move(slots[slot]);
        }
        // A call still running on another thread keeps the program alive until it returns.
        return ZQX_OK;
    });
}

int32_t ZQXGetFileType(ZQXHANDLE h, int32_t* type)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!type)
            return ZQX_ERR_BAD_ARGUMENT;
        *type = p.info.fileType;
        return ZQX_OK;
    });
}

int32_t ZQXGetChapterCount(ZQXHANDLE h, int32_t* count)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!count)
            return ZQX_ERR_BAD_ARGUMENT;
        *count = static_cast<int32_t>(p.info.sections.size());
        return ZQX_OK;
    });
}

int32_t ZQXGetCurrentChapter(ZQXHANDLE h, int32_t* index)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!index)
            return ZQX_ERR_BAD_ARGUMENT;
        // Compared by packet, not by ms: after a seek to a section the read
        // position is its packet's start, which may lie a little before the
        // section's own start, and must still count as inside that section.
        const auto after = std::upper_bound(p.sectionPackets.begin(), p.sectionPackets.end(), p.next);
        *index = after == p.sectionPackets.begin()
                     ? 0
                     : static_cast<int32_t>(after - p.sectionPackets.begin() - 1);
        return ZQX_OK;
    });
}

int32_t ZQXSeek(ZQXHANDLE h, uint32_t ms)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        SeekTo(p, ms);
        return ZQX_OK;
    });
}

int32_t ZQXSeekToChapter(ZQXHANDLE h, int32_t index)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (index < 0 || static_cast<size_t>(index) >= p.sectionPackets.size())
            return ZQX_ERR_OUT_OF_RANGE;
        p.next = p.sectionPackets[static_cast<size_t>(index)];
        return ZQX_OK;
    });
}

int32_t ZQXGetPlaybackPosition(ZQXHANDLE h, uint32_t* ms)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!ms)
            return ZQX_ERR_BAD_ARGUMENT;
        *ms = PositionMs(p);
        return ZQX_OK;
    });
}

int32_t ZQXSavePlaybackPosition(ZQXHANDLE h, int32_t mode)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (mode != ZQX_SAVE_TO_SIDE_FILE)
            return ZQX_ERR_BAD_ARGUMENT;
        return SavePosition(p.path, PositionMs(p));
    });
}

int32_t ZQXGetEncodedAudio(ZQXHANDLE h, uint8_t* buf, uint32_t capacity, uint32_t* length)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!length)
            return ZQX_ERR_BAD_ARGUMENT;
        *length = 0;
        if (p.next >= p.packets.size())
            return ZQX_ERR_END_OF_AUDIO;
        const PacketEntry& packet = p.packets[p.next];
        if (!buf || capacity < packet.bytes) {
            *length = packet.bytes;
            return ZQX_ERR_BUFFER_TOO_SMALL;
        }
        // Read and checked in our own buffer, so a damaged packet never reaches the caller.
        if (const int rc = ReadPacket(p.file, packet, p.packetBuffer.data()); rc != ZQX_OK)
            return rc;
        std::copy_n(p.packetBuffer.data(), packet.bytes, buf);
        *length = packet.bytes;
        p.lastDelivered = static_cast<int64_t>(p.next);
        ++p.next;
        const bool lastFrame = p.info.fileType == ZQX_TYPE_MP3 && p.next == p.packets.size();
        return lastFrame ? ZQX_ERR_LAST_FRAME : ZQX_OK;
    });
}

int32_t ZQXDecodePCMFrame(ZQXHANDLE h, const uint8_t* enc, uint32_t encLen, uint8_t* pcm, uint32_t room,
                          uint32_t* produced)
{
    if (produced)
        *produced = 0;
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (p.info.fileType == ZQX_TYPE_MP3)
            return ZQX_ERR_NOT_DECODABLE;
        if (!enc || !pcm || !produced)
            return ZQX_ERR_BAD_ARGUMENT;
        // The block just handed out is decoded with its own trimming (pre-skip on
        // the first packet, padding on the last); anything else decodes whole.
        const bool known = p.lastDelivered >= 0 && p.packets[size_t(p.lastDelivered)].bytes == encLen;
        uint32_t skip = 0;
        uint32_t keep = 0;
        if (known) {
            const size_t index = static_cast<size_t>(p.lastDelivered);
            skip = index == 0 ? p.info.preSkip : 0;
            keep = p.packets[index].samples;
            if (p.info.fileType == ZQX_TYPE_OPUS)
                PrepareOpusHistory(p, index);
        }
        const int rc = p.decoder.Decode(enc, encLen, skip, keep, pcm, room, produced);
        // A failed or foreign block leaves the codec's history unknown.
        p.lastDecoded = (rc == ZQX_OK && known) ? p.lastDelivered : -2;
        return rc;
    });
}

int32_t ZQXVerifyAudio(ZQXHANDLE h)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        uint32_t crc = 0;
        std::vector<uint8_t> packet(ZQX_MAX_BLOCK_BYTES);
        for (const PacketEntry& e : p.packets) {
            if (const int rc = ReadPacket(p.file, e, packet.data()); rc != ZQX_OK)
                return rc;
            crc = Crc32(crc, packet.data(), e.bytes);
        }
        return ChecksumMatches(crc, p.info.audioChunk.crc) ? ZQX_OK : ZQX_ERR_DAMAGED;
    });
}

int32_t ZQXGetImageCount(ZQXHANDLE h, int32_t* count)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!count)
            return ZQX_ERR_BAD_ARGUMENT;
        *count = static_cast<int32_t>(p.info.pictures.size());
        return ZQX_OK;
    });
}

int32_t ZQXGetImageStartTime(ZQXHANDLE h, int32_t index, uint32_t* ms)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!ms)
            return ZQX_ERR_BAD_ARGUMENT;
        if (index < 0 || static_cast<size_t>(index) >= p.info.pictures.size())
            return ZQX_ERR_OUT_OF_RANGE;
        *ms = p.info.pictures[size_t(index)].startMs;
        return ZQX_OK;
    });
}

int32_t ZQXGetEncodedImage(ZQXHANDLE h, int32_t index, uint8_t* buf, uint32_t capacity, uint32_t* length)
{
    return WithProgram(h, [&](OpenProgram& p) -> int32_t {
        if (!length)
            return ZQX_ERR_BAD_ARGUMENT;
        if (index < 0 || static_cast<size_t>(index) >= p.info.pictures.size())
            return ZQX_ERR_OUT_OF_RANGE;
        const PictureRecord& picture = p.info.pictures[size_t(index)];
        *length = picture.byteLength;
        if (!buf)
            return ZQX_OK;
        if (capacity < picture.byteLength)
            return ZQX_ERR_BUFFER_TOO_SMALL;
        // Read aside first: the caller's buffer is written only when the chunk checks out.
        std::vector<uint8_t> bytes(picture.byteLength);
        if (const int rc = ReadPictureChunk(p.file, p.info.pictureChunk, &picture, bytes.data());
            rc != ZQX_OK)
            return rc;
        std::copy(bytes.begin(), bytes.end(), buf);
        return ZQX_OK;
    });
}

} // extern "C"
