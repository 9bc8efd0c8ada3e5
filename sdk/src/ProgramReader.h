#pragma once
// Parses and verifies a program file.  Every length, count and offset taken from
// the file is checked against the file's real size before it is used, and every
// chunk is verified by its CRC-32 before its contents are trusted.

#include "FileAccess.h"
#include "ProgramLayout.h"

#include <vector>

namespace zqx {

// ZQX_OK, ZQX_ERR_DAMAGED, ZQX_ERR_NEWER_VERSION, ZQX_ERR_UNSUPPORTED or ZQX_ERR_IO.
// With packets null, the index and the audio are only checked to lie inside the
// file; with packets given, the index is read, verified and resolved.
int ReadProgram(const ReadOnlyFile& file, ProgramInfo& info, std::vector<PacketEntry>* packets);

// Reads one packet and checks its CRC: ZQX_OK, ZQX_ERR_DAMAGED or ZQX_ERR_IO.
int ReadPacket(const ReadOnlyFile& file, const PacketEntry& packet, uint8_t* out);

} // namespace zqx
