#pragma once
// Parses and verifies a program file.  Every length, count and offset taken from
// the file is checked against the file's real size before it is used, and every
// chunk is verified by its CRC-32 before its contents are trusted.
//
// Reading comes in parts so that a caller pays only for what it uses.  The head
// (header, metadata, sections, the picture table, where the index and the audio
// lie) is all a library listing needs, and for a usual program it costs one
// read of the file's first page.  The index and the picture bytes grow with a
// program's length and its pictures, so they are read, and checked, only when
// asked for.

#include "FileAccess.h"
#include "ProgramLayout.h"

#include <vector>

namespace zqx {

// ZQX_OK, ZQX_ERR_DAMAGED, ZQX_ERR_NEWER_VERSION, ZQX_ERR_UNSUPPORTED, ZQX_ERR_IO or
// ZQX_ERR_OUT_OF_MEMORY.  Verifies the header, the metadata and section chunks
// (checksums and structure), the structure of the picture table, and that the
// index and audio chunks follow with the file ending exactly where the audio
// ends.  Neither the picture bytes (nor so the picture chunk's checksum) nor the
// index are read.
int ReadProgramHead(const ReadOnlyFile& file, ProgramInfo& info);

// Reads the index, checks its checksum and resolves it against the audio chunk.
int ReadIndex(const ReadOnlyFile& file, const ProgramInfo& info, std::vector<PacketEntry>& packets);

// Reads the picture chunk through, a piece at a time, and checks its checksum;
// with picture given (an entry of the table the head read), its bytes are
// copied to out, which has room for its byteLength.  ZQX_OK, ZQX_ERR_DAMAGED or
// ZQX_ERR_IO; out may be partly written on failure.
int ReadPictureChunk(const ReadOnlyFile& file, const ChunkExtent& chunk, const PictureRecord* picture,
                     uint8_t* out);

// Reads one packet and checks its CRC: ZQX_OK, ZQX_ERR_DAMAGED or ZQX_ERR_IO.
int ReadPacket(const ReadOnlyFile& file, const PacketEntry& packet, uint8_t* out);

} // namespace zqx
