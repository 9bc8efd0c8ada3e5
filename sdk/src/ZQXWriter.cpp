#include "zqx/zqxwriter.h"

#include "ByteOrder.h"
#include "ContainerFormat.h"
#include "Crc32.h"
#include "FileAccess.h"
#include "ProgramLayout.h"
#include "TextEncoding.h"

#include <algorithm>
#include <new>

using namespace zqx;

struct CZQXWriter::Impl {
    enum class State { Idle, Open, Closed };
    State state = State::Idle;
    AtomicFileWriter file;
    ProgramInfo info;
    struct Picture {
        uint32_t startMs = 0;
        uint32_t kind = 0;
        std::vector<uint8_t> bytes;
    };
    std::vector<Picture> pictures;
    // Packets go to disk as they come, so memory does not grow with the
    // program: the audio and the index entries after the first (which the
    // pre-skip may still change) wait in spool files until Finish copies them
    // behind the chunks that must precede them.
    SpoolFile audio;
    SpoolFile laterIndexEntries;
    PacketEntry firstPacket;
    uint32_t packetCount = 0;
    uint32_t audioCrc = 0;
    uint64_t totalSamples = 0;

    int SetText(std::string& field, const std::string& text)
    {
        if (state != State::Open)
            return ZQX_ERR_STATE;
        if (!IsValidUtf8(text) || text.size() > format::kMaxTextBytes)
            return ZQX_ERR_BAD_ARGUMENT;
        field = text;
        return ZQX_OK;
    }
    int Write(const ByteSink& sink) { return file.Write(sink.bytes.data(), sink.bytes.size()); }
    int WriteChunkHeader(uint32_t tag, uint64_t payloadBytes, uint32_t crc)
    {
        ByteSink header;
        header.U32(tag);
        header.U32(crc);
        header.U64(payloadBytes);
        return Write(header);
    }
    int WriteChunk(uint32_t tag, const ByteSink& payload)
    {
        const std::vector<uint8_t>& b = payload.bytes;
        if (const int rc = WriteChunkHeader(tag, b.size(), Crc32(0, b.data(), b.size())); rc != ZQX_OK)
            return rc;
        return Write(payload);
    }
    int CopySpool(SpoolFile& spool)
    {
        return spool.ReadBack([this](const uint8_t* data, size_t size) { return file.Write(data, size); });
    }
    int AppendPacket(const uint8_t* data, uint32_t size, uint32_t sampleCount);
    int WriteIndex();
    int Finish();
};

namespace {

template <typename F> int Guarded(F body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return ZQX_ERR_OUT_OF_MEMORY;
    } catch (...) {
        return ZQX_ERR_IO;
    }
}

} // namespace

CZQXWriter::CZQXWriter() : impl(std::make_unique<Impl>())
{
}
CZQXWriter::~CZQXWriter()
{
    Abort();
}

int CZQXWriter::Create(const std::string& path, int32_t fileType, uint32_t sampleRate, uint32_t channels)
{
    return Guarded([&] {
        if (impl->state != Impl::State::Idle)
            return ZQX_ERR_STATE;
        if (path.empty())
            return ZQX_ERR_BAD_ARGUMENT;
        if (const int rc = CheckStreamFormat(fileType, sampleRate, channels); rc != ZQX_OK)
            return rc;
        int rc = impl->file.Begin(path);
        if (rc == ZQX_OK)
            rc = impl->audio.Open(path);
        if (rc == ZQX_OK)
            rc = impl->laterIndexEntries.Open(path);
        if (rc != ZQX_OK) {
            impl->file.Abort();
            impl->audio.Close();
            return rc;
        }
        impl->info.fileType = fileType;
        impl->info.sampleRate = sampleRate;
        impl->info.channels = channels;
        impl->state = Impl::State::Open;
        return ZQX_OK;
    });
}

int CZQXWriter::SetProgramId(const std::string& id)
{
    return Guarded([&] { return impl->SetText(impl->info.programId, id); });
}
int CZQXWriter::SetTitle(const std::string& text)
{
    return Guarded([&] { return impl->SetText(impl->info.title, text); });
}
int CZQXWriter::SetAuthor(const std::string& text)
{
    return Guarded([&] { return impl->SetText(impl->info.author, text); });
}
int CZQXWriter::SetNarrator(const std::string& text)
{
    return Guarded([&] { return impl->SetText(impl->info.narrator, text); });
}
int CZQXWriter::SetProvider(const std::string& text)
{
    return Guarded([&] { return impl->SetText(impl->info.provider, text); });
}
int CZQXWriter::SetDescription(const std::string& text)
{
    return Guarded([&] { return impl->SetText(impl->info.description, text); });
}

int CZQXWriter::SetTimeOffset(uint32_t ms)
{
    if (impl->state != Impl::State::Open)
        return ZQX_ERR_STATE;
    impl->info.timeOffsetMs = ms;
    return ZQX_OK;
}

int CZQXWriter::SetTimeSpan(bool flag, uint32_t startMs, uint32_t endMs)
{
    if (impl->state != Impl::State::Open)
        return ZQX_ERR_STATE;
    if (startMs > endMs)
        return ZQX_ERR_BAD_ARGUMENT;
    impl->info.spanFlag = flag ? 1 : 0;
    impl->info.spanStartMs = startMs;
    impl->info.spanEndMs = endMs;
    return ZQX_OK;
}

int CZQXWriter::AddSection(uint32_t startMs, const std::string& title)
{
    return Guarded([&] {
        if (impl->state != Impl::State::Open)
            return ZQX_ERR_STATE;
        if (!IsValidUtf8(title) || title.size() > format::kMaxTextBytes)
            return ZQX_ERR_BAD_ARGUMENT;
        impl->info.sections.push_back({startMs, title});
        return ZQX_OK;
    });
}

int CZQXWriter::AddPicture(uint32_t startMs, uint32_t kind, const std::vector<uint8_t>& bytes)
{
    return Guarded([&] {
        if (impl->state != Impl::State::Open)
            return ZQX_ERR_STATE;
        if (!PictureSignatureMatches(kind, bytes) || bytes.size() > format::kMaxPictureBytes)
            return ZQX_ERR_BAD_ARGUMENT;
        impl->pictures.push_back({startMs, kind, bytes});
        return ZQX_OK;
    });
}

int CZQXWriter::SetPreSkip(uint32_t samples)
{
    if (impl->state != Impl::State::Open)
        return ZQX_ERR_STATE;
    if (impl->info.fileType != ZQX_TYPE_OPUS && samples != 0)
        return ZQX_ERR_BAD_ARGUMENT;
    impl->info.preSkip = samples;
    return ZQX_OK;
}

int CZQXWriter::AddPacket(const uint8_t* data, uint32_t size, uint32_t sampleCount)
{
    return Guarded([&] {
        if (impl->state != Impl::State::Open)
            return ZQX_ERR_STATE;
        if (!data || !PacketShapeValid(impl->info, size, sampleCount, 0))
            return ZQX_ERR_BAD_ARGUMENT;
        if (impl->packetCount == UINT32_MAX)
            return ZQX_ERR_OUT_OF_RANGE;
        return impl->AppendPacket(data, size, sampleCount);
    });
}

int CZQXWriter::Impl::AppendPacket(const uint8_t* data, uint32_t size, uint32_t sampleCount)
{
    PacketEntry e;
    e.bytes = static_cast<uint16_t>(size);
    e.samples = static_cast<uint16_t>(sampleCount);
    e.crc = Crc32(0, data, size);
    if (packetCount == 0) {
        firstPacket = e;
    } else {
        uint8_t entry[format::kIndexEntryBytes];
        StoreLe16(entry, e.bytes);
        StoreLe16(entry + 2, e.samples);
        StoreLe32(entry + 4, e.crc);
        if (const int rc = laterIndexEntries.Append(entry, sizeof entry); rc != ZQX_OK)
            return rc;
    }
    if (const int rc = audio.Append(data, size); rc != ZQX_OK)
        return rc;
    audioCrc = Crc32(audioCrc, data, size);
    totalSamples += sampleCount;
    ++packetCount;
    return ZQX_OK;
}

int CZQXWriter::AddPcm16(const int16_t* samples, size_t frameCount)
{
    return Guarded([&] {
        if (impl->state != Impl::State::Open)
            return ZQX_ERR_STATE;
        if (impl->info.fileType != ZQX_TYPE_PCM16 || (!samples && frameCount))
            return ZQX_ERR_BAD_ARGUMENT;
        const size_t channels = impl->info.channels;
        const size_t framesPerPacket = ZQX_MAX_BLOCK_BYTES / (2 * channels);
        std::vector<uint8_t> packet(ZQX_MAX_BLOCK_BYTES);
        for (size_t first = 0; first < frameCount; first += framesPerPacket) {
            const size_t frames = std::min(framesPerPacket, frameCount - first);
            for (size_t i = 0; i < frames * channels; ++i)
                StoreLe16(packet.data() + 2 * i, static_cast<uint16_t>(samples[first * channels + i]));
            if (const int rc = AddPacket(packet.data(), static_cast<uint32_t>(frames * channels * 2),
                                         static_cast<uint32_t>(frames));
                rc != ZQX_OK)
                return rc;
        }
        return ZQX_OK;
    });
}

// The index payload is its count and first entry, known only now, followed by
// the spooled entries: its checksum takes one pass over the spool, the copy another.
int CZQXWriter::Impl::WriteIndex()
{
    ByteSink head;
    head.U32(packetCount);
    head.U16(firstPacket.bytes);
    head.U16(firstPacket.samples);
    head.U32(firstPacket.crc);
    uint32_t crc = Crc32(0, head.bytes.data(), head.bytes.size());
    int rc = laterIndexEntries.ReadBack([&crc](const uint8_t* data, size_t size) {
        crc = Crc32(crc, data, size);
        return ZQX_OK;
    });
    if (rc == ZQX_OK)
        rc = WriteChunkHeader(format::kTagIndex, head.bytes.size() + laterIndexEntries.Size(), crc);
    if (rc == ZQX_OK)
        rc = Write(head);
    return rc == ZQX_OK ? CopySpool(laterIndexEntries) : rc;
}

int CZQXWriter::Impl::Finish()
{
    if (packetCount == 0)
        return ZQX_ERR_BAD_ARGUMENT;
    // The first packet delivers what its pre-skip leaves.
    if (info.preSkip >= firstPacket.samples)
        return ZQX_ERR_BAD_ARGUMENT;
    firstPacket.samples = static_cast<uint16_t>(firstPacket.samples - info.preSkip);
    info.totalSamples = totalSamples - info.preSkip;
    info.lengthMs = SamplesToMs(info.totalSamples, info.sampleRate);
    std::stable_sort(info.sections.begin(), info.sections.end(),
                     [](const SectionRecord& a, const SectionRecord& b) { return a.startMs < b.startMs; });
    if (!info.sections.empty() && info.sections.back().startMs > info.lengthMs)
        return ZQX_ERR_OUT_OF_RANGE;

    ByteSink header;
    header.Bytes(format::kMagic.data(), format::kMagic.size());
    header.U16(format::kVersion);
    header.U16(format::kHeaderBytes);
    header.U32(static_cast<uint32_t>(info.fileType));
    header.U32(info.sampleRate);
    header.U32(info.channels);
    header.U64(info.totalSamples);
    header.U32(info.lengthMs);
    header.U32(info.preSkip);
    header.bytes.resize(format::kOffHeaderCrc, 0);
    header.U32(Crc32(0, header.bytes.data(), header.bytes.size()));
    static_assert(format::kOffHeaderCrc + 4 == format::kHeaderBytes);

    ByteSink meta;
    meta.U32(info.timeOffsetMs);
    meta.U32(info.spanFlag);
    meta.U32(info.spanStartMs);
    meta.U32(info.spanEndMs);
    for (const std::string* text :
         {&info.programId, &info.title, &info.author, &info.narrator, &info.provider, &info.description})
        meta.Text(*text);

    ByteSink sections;
    sections.U32(static_cast<uint32_t>(info.sections.size()));
    for (const SectionRecord& s : info.sections) {
        sections.U32(s.startMs);
        sections.Text(s.title);
    }

    ByteSink pictureChunk;
    pictureChunk.U32(static_cast<uint32_t>(pictures.size()));
    for (const Picture& p : pictures) {
        pictureChunk.U32(p.startMs);
        pictureChunk.U32(p.kind);
        pictureChunk.U32(static_cast<uint32_t>(p.bytes.size()));
        pictureChunk.Bytes(p.bytes.data(), p.bytes.size());
    }

    int rc = Write(header);
    if (rc == ZQX_OK)
        rc = WriteChunk(format::kTagMetadata, meta);
    if (rc == ZQX_OK)
        rc = WriteChunk(format::kTagSections, sections);
    if (rc == ZQX_OK)
        rc = WriteChunk(format::kTagPictures, pictureChunk);
    if (rc == ZQX_OK)
        rc = WriteIndex();
    if (rc == ZQX_OK)
        rc = WriteChunkHeader(format::kTagAudio, audio.Size(), audioCrc);
    if (rc == ZQX_OK)
        rc = CopySpool(audio);
    if (rc == ZQX_OK)
        rc = file.Commit();
    return rc;
}

int CZQXWriter::Finish()
{
    return Guarded([&] {
        if (impl->state != Impl::State::Open)
            return ZQX_ERR_STATE;
        const int rc = impl->Finish();
        if (rc != ZQX_OK)
            impl->file.Abort();
        impl->audio.Close();
        impl->laterIndexEntries.Close();
        impl->state = Impl::State::Closed;
        return rc;
    });
}

void CZQXWriter::Abort()
{
    if (!impl)
        return;
    impl->file.Abort();
    impl->state = Impl::State::Closed;
    impl->audio.Close();
    impl->laterIndexEntries.Close();
}

uint64_t CZQXWriter::GetTotalSamples() const
{
    return impl->totalSamples;
}
uint32_t CZQXWriter::GetPacketCount() const
{
    return impl->packetCount;
}
