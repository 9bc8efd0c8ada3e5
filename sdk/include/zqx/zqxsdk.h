/*
 * zqxsdk.h - the audio-program SDK: reading ".zq" and ".zqx" program files.
 *
 * One public C header.  Every operation returns a signed 32-bit status: 0 for
 * success, a negative ZQX_* code otherwise (ZQXStatusName names each one).
 * Nothing throws across this boundary; out-values are written only on success
 * unless an operation says otherwise.
 *
 * Handles are small nonzero 32-bit values from a process-wide table, so a
 * caller may keep one in a 32-bit field; 0 is never a valid handle.  A handle
 * may be used from any thread, one call at a time per handle.
 *
 * Times are unsigned 32-bit milliseconds from the start of the file.
 *
 * Reading loop for the SDK-decoded types (every type but 4):
 *   ZQXGetEncodedAudio(h, block, 4096, &len)     -> 0 per block, -19 when none is left
 *   ZQXDecodePCMFrame(h, block, len, pcm, room, &produced)
 * Every block of a file decodes to the same PCM size, except possibly the first
 * (codec start-up delay removed) and the last.  The status -24 is never used for
 * these types: a caller that stops at any nonzero read status must not lose the
 * last block.
 *
 * Type 4 (MPEG-2 Layer III, 22050 Hz mono): ZQXGetEncodedAudio(h, frame, 104, &len)
 * delivers one 104-byte frame per call with status 0, the very last frame with
 * status -24 (the frame IS delivered), and -19 afterwards.  The SDK does not
 * decode these frames; ZQXDecodePCMFrame answers ZQX_ERR_NOT_DECODABLE.
 */
#ifndef ZQX_ZQXSDK_H
#define ZQX_ZQXSDK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#else
#include <uchar.h> /* char16_t */
#endif

#if defined(ZQX_BUILDING_SDK)
#define ZQX_EXPORT __attribute__((visibility("default")))
#else
#define ZQX_EXPORT
#endif

#define ZQX_SDK_VERSION_MAJOR 2
#define ZQX_SDK_VERSION_MINOR 1
#define ZQX_SDK_VERSION_PATCH 0
/* One number that grows with every release: 0x00MMmmpp. */
#define ZQX_SDK_VERSION ((ZQX_SDK_VERSION_MAJOR << 16) | (ZQX_SDK_VERSION_MINOR << 8) | ZQX_SDK_VERSION_PATCH)

typedef uint32_t ZQXHANDLE;

/* Status codes.  -7, -19 and -24 are the values players already know. */
#define ZQX_OK 0
#define ZQX_ERR_BAD_ARGUMENT -1      /* null pointer, invalid path text, unknown mode */
#define ZQX_ERR_BAD_HANDLE -2        /* handle not open (or already closed) */
#define ZQX_ERR_NO_FILE -3           /* the file does not exist */
#define ZQX_ERR_IO -4                /* the file exists but cannot be read or written */
#define ZQX_ERR_OUT_OF_MEMORY -5     /* allocation failed */
#define ZQX_ERR_TOO_MANY_HANDLES -6  /* the handle table is full */
#define ZQX_ERR_DAMAGED -7           /* not a program file, or damaged (checksum, length, offset) */
#define ZQX_ERR_NEWER_VERSION -8     /* a program file of a newer format version than this SDK reads */
#define ZQX_ERR_OUT_OF_RANGE -9      /* chapter or picture index outside 0..count-1 */
#define ZQX_ERR_BUFFER_TOO_SMALL -10 /* capacity/room too small; *length tells the size needed */
#define ZQX_ERR_NOT_DECODABLE -11    /* ZQXDecodePCMFrame on a type-4 handle: the caller decodes MP3 */
#define ZQX_ERR_DECODE -12           /* the block given to ZQXDecodePCMFrame does not decode */
#define ZQX_ERR_UNSUPPORTED -13      /* a file type or parameter this SDK does not handle */
#define ZQX_ERR_STATE -14            /* writer used out of order (after finish or abort) */
#define ZQX_ERR_END_OF_AUDIO -19     /* no encoded audio is left */
#define ZQX_ERR_LAST_FRAME -24       /* type 4 only: this call delivered the last frame */

/* File types. */
#define ZQX_TYPE_ADPCM_8K 1  /* IMA ADPCM, 8000 Hz mono, ".zq" */
#define ZQX_TYPE_ADPCM_16K 2 /* IMA ADPCM, 16000 Hz mono, ".zq" */
#define ZQX_TYPE_OPUS 3      /* Opus, mono or stereo, ".zqx" */
#define ZQX_TYPE_MP3 4       /* MPEG-2 Layer III, 22050 Hz mono, 104-byte frames, ".zq" */
#define ZQX_TYPE_PCM16 5     /* 16-bit little-endian PCM, ".zq" */

/* Largest encoded block ZQXGetEncodedAudio ever returns. */
#define ZQX_MAX_BLOCK_BYTES 4096
/* Size of every type-4 frame. */
#define ZQX_MP3_FRAME_BYTES 104

/* ZQXSavePlaybackPosition mode: write the position to the ".pos" side file. */
#define ZQX_SAVE_TO_SIDE_FILE 2

/* Static text naming a status ("ZQX_ERR_DAMAGED"); "ZQX_UNKNOWN_STATUS" for other values. */
ZQX_EXPORT const char* ZQXStatusName(int32_t status);

/* Version of the library actually loaded, as ZQX_SDK_VERSION. */
ZQX_EXPORT uint32_t ZQXGetVersion(void);

/*
 * Opens a program file.  path is UTF-16, NUL-terminated; a lone surrogate
 * U+DC80 to U+DCFF stands for the byte 0x80 to 0xFF of a file name that is not
 * UTF-8 (any other unpaired surrogate is ZQX_ERR_BAD_ARGUMENT).  Verifies the header and
 * every metadata, section, picture and index chunk (checksums, lengths, offsets):
 * a damaged or truncated file answers ZQX_ERR_DAMAGED.  Audio blocks are verified
 * as they are read.  If a valid ".pos" side file exists, the read position starts
 * at the position saved there; a damaged side file is ignored.
 */
ZQX_EXPORT int32_t ZQXOpenFileWinW(ZQXHANDLE* out, const char16_t* path);
ZQX_EXPORT int32_t ZQXCloseFile(ZQXHANDLE h);

ZQX_EXPORT int32_t ZQXGetFileType(ZQXHANDLE h, int32_t* type);

/* Sections are chapters; count may be 0. */
ZQX_EXPORT int32_t ZQXGetChapterCount(ZQXHANDLE h, int32_t* count);
/* Last chapter whose start lies in a block at or before the read position (so right
 * after ZQXSeekToChapter(i) the answer is i); 0 when there is none. */
ZQX_EXPORT int32_t ZQXGetCurrentChapter(ZQXHANDLE h, int32_t* index);

/*
 * Moves the read position to the block containing ms.  A target at or past the
 * end moves to the end (the next read answers -19) and still returns ZQX_OK.
 */
ZQX_EXPORT int32_t ZQXSeek(ZQXHANDLE h, uint32_t ms);
/* Moves to the block containing the chapter's start; index outside 0..count-1: ZQX_ERR_OUT_OF_RANGE,
 * position unchanged. */
ZQX_EXPORT int32_t ZQXSeekToChapter(ZQXHANDLE h, int32_t index);
/* The read position: the start time of the next block to be returned (the length at the end). */
ZQX_EXPORT int32_t ZQXGetPlaybackPosition(ZQXHANDLE h, uint32_t* ms);
/* mode ZQX_SAVE_TO_SIDE_FILE (2): writes the read position to the ".pos" side file
 * atomically; other modes answer ZQX_ERR_BAD_ARGUMENT. */
ZQX_EXPORT int32_t ZQXSavePlaybackPosition(ZQXHANDLE h, int32_t mode);

/*
 * Copies the next encoded block into buf and advances.  capacity too small (or buf
 * null): ZQX_ERR_BUFFER_TOO_SMALL with *length set to the size needed, nothing
 * consumed.  A block whose checksum fails answers ZQX_ERR_DAMAGED and is not
 * delivered.  At the end: ZQX_ERR_END_OF_AUDIO with *length 0.
 */
ZQX_EXPORT int32_t ZQXGetEncodedAudio(ZQXHANDLE h, uint8_t* buf, uint32_t capacity, uint32_t* length);

/*
 * Decodes one block returned by ZQXGetEncodedAudio into 16-bit little-endian PCM
 * (interleaved when stereo).  *produced is set to 0 first and stays 0 on every
 * failure.  room too small: ZQX_ERR_BUFFER_TOO_SMALL, nothing written.  Type 4:
 * ZQX_ERR_NOT_DECODABLE.
 */
ZQX_EXPORT int32_t ZQXDecodePCMFrame(ZQXHANDLE h, const uint8_t* enc, uint32_t encLen, uint8_t* pcm,
                                     uint32_t room, uint32_t* produced);

/* Reads every audio block once and checks its checksum, leaving the read position
 * where it was: ZQX_OK or ZQX_ERR_DAMAGED.  For inspection tools; players need not call it. */
ZQX_EXPORT int32_t ZQXVerifyAudio(ZQXHANDLE h);

/* Pictures (cover images), in file order; index 0 is the cover. */
ZQX_EXPORT int32_t ZQXGetImageCount(ZQXHANDLE h, int32_t* count);
ZQX_EXPORT int32_t ZQXGetImageStartTime(ZQXHANDLE h, int32_t index, uint32_t* ms);
/* JPEG or PNG bytes, read from the file when asked for.  buf null: *length = size,
 * ZQX_OK.  capacity too small: ZQX_ERR_BUFFER_TOO_SMALL with *length = size.  The
 * picture chunk is checked again on each read: ZQX_ERR_DAMAGED, buf untouched,
 * if it no longer checks out (the file changed after the open). */
ZQX_EXPORT int32_t ZQXGetEncodedImage(ZQXHANDLE h, int32_t index, uint8_t* buf, uint32_t capacity,
                                      uint32_t* length);

#ifdef __cplusplus
}
#endif

#endif /* ZQX_ZQXSDK_H */
