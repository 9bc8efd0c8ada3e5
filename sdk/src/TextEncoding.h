#pragma once
// UTF-8 / UTF-16 conversion: paths arrive as UTF-16 and the OS takes UTF-8;
// metadata is stored as UTF-8 and handed out as UTF-16.

#include <optional>
#include <string>

namespace zqx {

// Nothing for text with an unpaired surrogate, which names no file.
std::optional<std::string> Utf16ToUtf8(const std::u16string& text);
// Invalid sequences become U+FFFD, so a damaged string still displays.
std::u16string Utf8ToUtf16(const std::string& text);
bool IsValidUtf8(const std::string& text);

} // namespace zqx
