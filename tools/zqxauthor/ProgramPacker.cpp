#include "ProgramPacker.h"

#include "AudioFileReader.h"
#include "Mp3PacketEncoder.h"
#include "PacketEncoderFactory.h"

#include "zqx/zqxwriter.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>

namespace zqxauthor {
namespace {

// Picture kinds as the writer numbers them.
constexpr std::uint32_t kPictureJpeg = 1;
constexpr std::uint32_t kPicturePng = 2;

std::string StatusText(int status)
{
    return std::string(ZQXStatusName(status)) + " (" + std::to_string(status) + ")";
}

std::string Stem(const std::string& path)
{
    return std::filesystem::path(path).stem().string();
}

bool ReadWholeFile(const std::string& path, std::vector<std::uint8_t>& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

std::uint32_t PictureKind(const std::vector<std::uint8_t>& b)
{
    if (b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF)
        return kPictureJpeg;
    static constexpr std::uint8_t kPng[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (b.size() >= sizeof kPng && std::equal(std::begin(kPng), std::end(kPng), b.begin()))
        return kPicturePng;
    return 0;
}

// Things placed on the whole program's time line (sections, pictures) moved
// into a span: those starting inside it keep their place relative to its
// start; the one running when the span begins starts the file at 0.
template <typename Item>
std::vector<std::pair<std::uint64_t, const Item*>>
IntoSpan(const std::vector<std::pair<std::uint64_t, const Item*>>& all, std::uint64_t begin,
         std::uint64_t end)
{
    std::vector<std::pair<std::uint64_t, const Item*>> kept;
    const Item* running = nullptr;
    bool startsAtBegin = false;
    for (const auto& [at, item] : all) {
        if (at < begin)
            running = item;
        else if (at < end || (at == end && begin == end)) {
            startsAtBegin = startsAtBegin || at == begin;
            kept.push_back({at - begin, item});
        }
    }
    if (running && !startsAtBegin)
        kept.insert(kept.begin(), {0, running});
    return kept;
}

} // namespace

void ProgramPacker::AddSectionStarts(const SectionInput& input, const std::string& fileTitle,
                                     std::uint64_t begin, std::uint64_t end, std::uint32_t rate,
                                     std::vector<std::pair<std::uint64_t, const std::string*>>& starts)
{
    if (input.marks.empty()) {
        starts.push_back({begin, &fileTitle});
        return;
    }
    for (const SectionMark& mark : input.marks) {
        const std::uint64_t at = begin + std::uint64_t(mark.startMs) * rate / 1000;
        // The container's stated length can exceed what decodes; a chapter after the audio has nothing to
        // play.
        if (at >= end && mark.startMs > 0) {
            warnings_.push_back("'" + input.path + "': chapter '" + mark.title +
                                "' starts after the audio ends; dropped");
            continue;
        }
        starts.push_back({at, &mark.title});
    }
}

bool ProgramPacker::Fail(std::string message)
{
    if (error_.empty())
        error_ = std::move(message);
    return false;
}

bool ProgramPacker::Pack(const PackRequest& request, const Progress& progress)
{
    error_.clear();
    Outcome outcome = PackOnce(request, false, progress);
    if (outcome == Outcome::Mp3ReservoirOverflow) {
        // Rare: a long loud stretch outran the average rate. The constant rate always fits.
        error_.clear();
        outcome = PackOnce(request, true, progress);
    }
    return outcome == Outcome::Done;
}

ProgramPacker::Outcome ProgramPacker::PackOnce(const PackRequest& request, bool mp3ConstantRate,
                                               const Progress& progress)
{
    samplesWritten_ = 0;
    packetsWritten_ = 0;
    warnings_.clear();
    if (request.output.empty())
        return Fail("no output file given"), Outcome::Failed;
    if (const auto folder = std::filesystem::path(request.output).parent_path();
        !folder.empty() && !std::filesystem::is_directory(folder))
        return Fail("the folder of output '" + request.output + "' does not exist"), Outcome::Failed;
    if (request.sections.empty())
        return Fail("no input audio given"), Outcome::Failed;
    if (request.spanMs && request.spanMs->first >= request.spanMs->second)
        return Fail("the time span must end after it starts"), Outcome::Failed;

    // Open every input and picture before anything is written, so a typo costs nothing.
    std::vector<std::unique_ptr<AudioFileReader>> readers;
    std::uint64_t totalFrames = 0;
    for (const auto& s : request.sections) {
        if (!std::filesystem::exists(s.path))
            return Fail("input file '" + s.path + "' does not exist"), Outcome::Failed;
        auto reader = std::make_unique<AudioFileReader>();
        if (!reader->Open(s.path))
            return Fail(reader->Error()), Outcome::Failed;
        totalFrames += reader->SourceFrames();
        readers.push_back(std::move(reader));
    }
    std::vector<std::vector<std::uint8_t>> pictureBytes;
    for (const auto& p : request.pictures) {
        std::vector<std::uint8_t> bytes = p.bytes;
        if (bytes.empty() && !ReadWholeFile(p.path, bytes))
            return Fail("cannot read picture '" + p.path + "'"), Outcome::Failed;
        if (!PictureKind(bytes))
            return Fail("picture '" + p.path + "' is neither JPEG nor PNG"), Outcome::Failed;
        pictureBytes.push_back(std::move(bytes));
    }

    EncoderRequest er{request.fileType, request.sampleRate, request.channels, request.bitrate,
                      mp3ConstantRate};
    if (!er.channels && (request.fileType == 3 || request.fileType == 5))
        er.channels = std::min<std::uint32_t>(readers.front()->SourceChannels(), 2);
    std::string error;
    auto encoder = CreatePacketEncoder(er, error);
    if (!encoder)
        return Fail(error), Outcome::Failed;
    const std::uint32_t rate = encoder->SampleRate();
    const std::uint32_t channels = encoder->Channels();

    CZQXWriter writer;
    auto check = [this](int status, const std::string& what) {
        return status == ZQX_OK || Fail(what + " failed: " + StatusText(status));
    };
    if (!check(writer.Create(request.output, request.fileType, rate, channels),
               "creating '" + request.output + "'"))
        return Outcome::Failed;

    if (encoder->PreSkip() && !check(writer.SetPreSkip(encoder->PreSkip()), "setting the codec delay"))
        return Outcome::Failed;

    const std::uint64_t spanBegin = request.spanMs ? std::uint64_t(request.spanMs->first) * rate / 1000 : 0;
    const std::uint64_t spanEnd = request.spanMs ? std::uint64_t(request.spanMs->second) * rate / 1000
                                                 : std::numeric_limits<std::uint64_t>::max();
    std::uint64_t position = 0; // samples of the joined inputs so far
    std::uint64_t framesBefore = 0;
    std::vector<EncodedPacket> packets;
    auto writePackets = [&]() {
        for (const auto& p : packets) {
            // The writer counts what a packet decodes to; it drops the pre-skip itself.
            if (!check(writer.AddPacket(p.bytes.data(), std::uint32_t(p.bytes.size()), p.skip + p.samples),
                       "writing audio"))
                return false;
            samplesWritten_ += p.samples;
            ++packetsWritten_;
        }
        packets.clear();
        return true;
    };

    bool pastSpan = false;
    std::vector<std::pair<std::uint64_t, const std::string*>> sectionStarts;
    std::vector<std::string> fileTitles;
    for (const auto& s : request.sections)
        fileTitles.push_back(s.title.empty() ? Stem(s.path) : s.title);
    for (std::size_t i = 0; i < readers.size(); ++i) {
        const std::uint64_t fileStart = position;
        const bool ok = readers[i]->Convert(
            rate, channels, [&](std::span<const std::int16_t> chunk, std::uint64_t sourceFrames) {
                const std::uint64_t n = chunk.size() / channels;
                const std::uint64_t from = std::clamp(spanBegin, position, position + n) - position;
                const std::uint64_t to = std::clamp(spanEnd, position, position + n) - position;
                position += n;
                if (to > from &&
                    !encoder->Encode(chunk.subspan(from * channels, (to - from) * channels), packets))
                    return Fail(encoder->Error());
                if (progress && totalFrames)
                    progress(std::min(1.0, double(framesBefore + sourceFrames) / double(totalFrames)));
                if (!writePackets())
                    return false;
                // Past the span nothing more is kept: stop reading (a part of a long book is quick to cut).
                pastSpan = position >= spanEnd;
                return !pastSpan;
            });
        // A file cut short by the span's end has its later chapters outside the span: keep them to IntoSpan.
        AddSectionStarts(request.sections[i], fileTitles[i], fileStart, ok ? position : UINT64_MAX, rate,
                         sectionStarts);
        if (!ok && pastSpan && error_.empty())
            break;
        if (!ok) {
            auto* mp3 = dynamic_cast<Mp3PacketEncoder*>(encoder.get());
            if (mp3 && mp3->ReservoirOverflowed())
                return Outcome::Mp3ReservoirOverflow;
            return Fail(readers[i]->Error()), Outcome::Failed;
        }
        framesBefore += readers[i]->SourceFrames();
    }
    if (!encoder->Finish(packets)) {
        auto* mp3 = dynamic_cast<Mp3PacketEncoder*>(encoder.get());
        if (mp3 && mp3->ReservoirOverflowed())
            return Outcome::Mp3ReservoirOverflow;
        return Fail(encoder->Error()), Outcome::Failed;
    }
    if (!writePackets())
        return Outcome::Failed;
    if (samplesWritten_ == 0)
        return Fail(request.spanMs ? "the time span holds no audio of the inputs"
                                   : "the inputs hold no audio"),
               Outcome::Failed;

    for (const auto& [at, title] : IntoSpan(sectionStarts, spanBegin, std::min(spanEnd, position))) {
        if (!check(writer.AddSection(std::uint32_t(at * 1000 / rate), *title),
                   "adding section '" + *title + "'"))
            return Outcome::Failed;
    }
    std::vector<std::pair<std::uint64_t, const PictureInput*>> pictureStarts;
    for (const auto& p : request.pictures)
        pictureStarts.push_back({p.startMs, &p});
    std::stable_sort(pictureStarts.begin(), pictureStarts.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    const std::uint64_t spanBeginMs = request.spanMs ? request.spanMs->first : 0;
    const std::uint64_t spanEndMs =
        request.spanMs ? request.spanMs->second : std::numeric_limits<std::uint64_t>::max();
    // The first picture given is the cover, so pictures keep their command-line order.
    for (std::size_t i = 0; i < request.pictures.size(); ++i) {
        const PictureInput* p = &request.pictures[i];
        for (const auto& [at, kept] : IntoSpan(pictureStarts, spanBeginMs, spanEndMs)) {
            if (kept != p)
                continue;
            if (!check(writer.AddPicture(std::uint32_t(at), PictureKind(pictureBytes[i]), pictureBytes[i]),
                       "adding picture '" + p->path + "'"))
                return Outcome::Failed;
        }
    }

    const std::string title = !request.title.empty()               ? request.title
                              : !request.sections[0].title.empty() ? request.sections[0].title
                                                                   : Stem(request.sections[0].path);
    if (!check(writer.SetProgramId(request.programId.empty() ? Stem(request.output) : request.programId),
               "setting the program identifier") ||
        !check(writer.SetTitle(title), "setting the title") ||
        !check(writer.SetAuthor(request.author), "setting the author") ||
        !check(writer.SetNarrator(request.narrator), "setting the narrator") ||
        !check(writer.SetProvider(request.provider), "setting the provider") ||
        !check(writer.SetDescription(request.description), "setting the description"))
        return Outcome::Failed;
    if (request.timeOffsetMs &&
        !check(writer.SetTimeOffset(*request.timeOffsetMs), "setting the time offset"))
        return Outcome::Failed;
    if (request.spanMs && !check(writer.SetTimeSpan(true, request.spanMs->first, request.spanMs->second),
                                 "setting the time span"))
        return Outcome::Failed;
    if (!check(writer.Finish(), "finishing '" + request.output + "'"))
        return Outcome::Failed;
    if (progress)
        progress(1.0);
    return Outcome::Done;
}

} // namespace zqxauthor
