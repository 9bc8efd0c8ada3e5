#include "PacketEncoderFactory.h"

#include "ImaAdpcmPacketEncoder.h"
#include "Mp3PacketEncoder.h"
#include "OpusPacketEncoder.h"
#include "Pcm16PacketEncoder.h"

namespace zqxauthor {

const FileTypeInfo* FindFileType(int fileType)
{
    for (const auto& t : kFileTypes)
        if (t.fileType == fileType)
            return &t;
    return nullptr;
}

std::unique_ptr<PacketEncoder> CreatePacketEncoder(const EncoderRequest& request, std::string& error)
{
    const FileTypeInfo* info = FindFileType(request.fileType);
    if (!info) {
        error = "unsupported file type " + std::to_string(request.fileType) + " (types are 1 to 5)";
        return nullptr;
    }
    const std::uint32_t rate = request.sampleRate ? request.sampleRate : info->defaultRate;
    const std::uint32_t channels = request.channels ? request.channels : 1;
    if (info->fixedRate && rate != info->defaultRate) {
        error = "type " + std::to_string(info->fileType) + " is always " + std::to_string(info->defaultRate) +
                " Hz";
        return nullptr;
    }
    if (channels > info->maxChannels) {
        error = "type " + std::to_string(info->fileType) + " is mono";
        return nullptr;
    }
    std::unique_ptr<PacketEncoder> encoder;
    switch (info->fileType) {
    case 1:
    case 2:
        encoder = std::make_unique<ImaAdpcmPacketEncoder>(rate, ImaAdpcmPacketEncoder::BlockBytesFor(rate));
        break;
    case 3:
        encoder = std::make_unique<OpusPacketEncoder>(rate, channels, request.bitrate);
        break;
    case 4:
        encoder = std::make_unique<Mp3PacketEncoder>(
            request.mp3ConstantRate ? Mp3PacketEncoder::Rate::Constant : Mp3PacketEncoder::Rate::Average);
        break;
    default:
        encoder = std::make_unique<Pcm16PacketEncoder>(rate, channels);
        break;
    }
    if (!encoder->Error().empty()) {
        error = encoder->Error();
        return nullptr;
    }
    return encoder;
}

} // namespace zqxauthor
