#pragma once
// UTF-8 / UTF-16 conversion: paths arrive as UTF-16 and the OS takes bytes;
// metadata is stored as UTF-8 and handed out as UTF-16.

#include <optional>
#include <string>

namespace zqx {

// The bytes of the file a UTF-16 path names: UTF-8, except that a lone
// surrogate U+DC80 to U+DCFF stands for the byte 0x80 to 0xFF of a name that
// is not UTF-8 (how the player holds such names).  Nothing for text with any
// other unpaired surrogate, which names no file.
std::optional<std::string> PathBytesFromUtf16(const std::u16string& text);
// Invalid sequences become U+FFFD, so a damaged string still displays.
std::u16string Utf8ToUtf16(const std::string& text);
bool IsValidUtf8(const std::string& text);

} // namespace zqx
