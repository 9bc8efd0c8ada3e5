#include "PositionFile.h"

#include "ByteOrder.h"
#include "Crc32.h"
#include "FileAccess.h"
#include "zqx/zqxsdk.h"

#include <array>

namespace zqx {
namespace {

// magic, version, position ms, CRC-32 of the first 12 bytes
constexpr size_t kPositionFileBytes = 16;
constexpr uint32_t kPositionMagic = 0x53505A51; // "QZPS" read little-endian
constexpr uint32_t kPositionVersion = 1;

void ReplaceAll(std::string& text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

} // namespace

std::string SideFilePath(const std::string& programPath)
{
    std::string side = programPath;
    ReplaceAll(side, ".zq", ".pos");
    ReplaceAll(side, ".zqx", ".pos");
    return side;
}

int SavePosition(const std::string& programPath, uint32_t positionMs)
{
    std::array<uint8_t, kPositionFileBytes> bytes{};
    StoreLe32(bytes.data(), kPositionMagic);
    StoreLe32(bytes.data() + 4, kPositionVersion);
    StoreLe32(bytes.data() + 8, positionMs);
    StoreLe32(bytes.data() + 12, Crc32(0, bytes.data(), 12));
    AtomicFileWriter writer;
    if (const int rc = writer.Begin(SideFilePath(programPath)); rc != ZQX_OK)
        return rc;
    if (const int rc = writer.Write(bytes.data(), bytes.size()); rc != ZQX_OK)
        return rc;
    return writer.Commit();
}

std::optional<uint32_t> LoadPosition(const std::string& programPath)
{
    ReadOnlyFile file;
    if (file.Open(SideFilePath(programPath)) != ZQX_OK || file.Size() != kPositionFileBytes)
        return std::nullopt;
    std::array<uint8_t, kPositionFileBytes> bytes{};
    if (file.ReadAt(0, bytes.data(), bytes.size()) != ZQX_OK)
        return std::nullopt;
    if (LoadLe32(bytes.data()) != kPositionMagic || LoadLe32(bytes.data() + 4) != kPositionVersion ||
        !ChecksumMatches(Crc32(0, bytes.data(), 12), LoadLe32(bytes.data() + 12)))
        return std::nullopt;
    return LoadLe32(bytes.data() + 8);
}

} // namespace zqx
