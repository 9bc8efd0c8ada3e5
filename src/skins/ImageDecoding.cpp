#include "skins/ImageDecoding.h"

#include <QBuffer>
#include <QByteArray>
#include <QImageReader>

namespace talvo {

QImage DecodeImage(const std::uint8_t* data, std::size_t length, QSize maxSize)
{
    if (data == nullptr || length == 0 || length > std::size_t(std::numeric_limits<int>::max()))
        return {};
    const QSize limit = maxSize.isValid() ? maxSize : QSize(kDefaultMaxImageSide, kDefaultMaxImageSide);
    // The reader works on the caller's bytes without copying them.
    QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(length));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize size = reader.size();
    if (!size.isValid() || size.width() > limit.width() || size.height() > limit.height())
        return {};
    QImage image;
    if (!reader.read(&image))
        return {};
    return image;
}

} // namespace talvo
