#pragma once
// The 628-byte program record of the desktop-sync enumeration, little-endian.
// The desktop reads the records by these offsets; docs/sync-records.md
// describes them for its side.
#include <QString>
#include <array>
#include <cstddef>
#include <cstdint>

namespace talvo {

class ProgramFile;

namespace SyncRecord {
inline constexpr std::size_t kSize = 628;
inline constexpr std::uint32_t kVersion = 1;

inline constexpr std::size_t kVersionOffset = 0; // u32, always kVersion
inline constexpr std::size_t kPathOffset = 4;    // ANSI, NUL-terminated
inline constexpr std::size_t kPathSize = 260;
inline constexpr std::size_t kTitleOffset = 264; // ANSI, NUL-terminated
inline constexpr std::size_t kTextSize = 64;     // each descriptive text field
inline constexpr std::size_t kAuthorOffset = 328;
inline constexpr std::size_t kNarratorOffset = 392;
inline constexpr std::size_t kProviderOffset = 456;
inline constexpr std::size_t kProgramIdOffset = 520; // the key of the program's registry record
inline constexpr std::size_t kReservedOffset = 584;  // zero, 28 bytes
inline constexpr std::size_t kDurationOffset = 612;  // u32, seconds
inline constexpr std::size_t kPositionOffset = 616;  // i32, seconds, by SyncPositionSeconds
inline constexpr std::size_t kFileTypeOffset = 620;  // i32, the SDK's file type
inline constexpr std::size_t kFlagsOffset = 624;     // u32, the bits below

inline constexpr std::uint32_t kFlagOnStorageCard = 0x1;
inline constexpr std::uint32_t kFlagTimeSpan = 0x2; // the file holds a part of a longer program

static_assert(kPathOffset + kPathSize == kTitleOffset);
static_assert(kTitleOffset + kTextSize == kAuthorOffset);
static_assert(kProgramIdOffset + kTextSize == kReservedOffset);
static_assert(kFlagsOffset + 4 == kSize);
} // namespace SyncRecord

using SyncRecordBytes = std::array<std::uint8_t, SyncRecord::kSize>;

// The record of one entry; positionSeconds comes from the registry, not the file.
SyncRecordBytes MakeSyncRecord(const ProgramFile& entry, std::int32_t positionSeconds);

// Text in the local 8-bit code page, cut (never inside a character) to leave
// room for the terminator in size bytes; the rest of the field stays zero.
void PutAnsiText(std::uint8_t* field, std::size_t size, const QString& text);

} // namespace talvo
