#pragma once
// Cover pictures arrive as encoded bytes read from a program file.  Any
// failure gives no picture, and the display leaves the cover area as the skin
// draws it: a damaged picture must never cost the listener the player.
#include <QImage>
#include <QSize>
#include <cstddef>
#include <cstdint>

namespace talvo {

// Without a limit from the caller, pictures of up to this size are decoded.
inline constexpr int kDefaultMaxImageSide = 10000;

// Decodes JPEG, PNG, GIF or BMP bytes; a null image on any failure (an
// unknown format, truncated data, or a picture larger than maxSize or the
// default limit).  The bytes stay the caller's.
QImage DecodeImage(const std::uint8_t* data, std::size_t length, QSize maxSize = QSize());

} // namespace talvo
