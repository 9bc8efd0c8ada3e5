#include "platform/MessageBox.h"

#include <QFile>

namespace talvo {
namespace {

// One box must stay one line of the log, whatever its texts hold.
QString Escaped(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (QChar c : text) {
        switch (c.unicode()) {
        case u'\\':
            out += QLatin1String("\\\\");
            break;
        case u'\t':
            out += QLatin1String("\\t");
            break;
        case u'\r':
            out += QLatin1String("\\r");
            break;
        case u'\n':
            out += QLatin1String("\\n");
            break;
        default:
            out += c;
        }
    }
    return out;
}

class RecordingMessageBox final : public MessageBoxPresenter {
public:
    explicit RecordingMessageBox(QString path) : path_(std::move(path)) {}

    int Show(QWidget*, const QString& text, const QString& caption, MessageBoxStyle style) override
    {
        QString line = Escaped(caption) + QLatin1Char('\t') + Escaped(text) + QLatin1Char('\t') +
                       QLatin1String("0x") + QString::number(style, 16).toUpper() + QLatin1Char('\n');
        // One write per box in append mode, so boxes of several processes
        // sharing one log never interleave within a line.
        QFile log(path_);
        if (log.open(QIODevice::WriteOnly | QIODevice::Append))
            log.write(line.toUtf8());
        return DefaultMessageBoxAnswer(style);
    }

private:
    QString path_;
};

} // namespace

std::unique_ptr<MessageBoxPresenter> CreateRecordingMessageBox(const QString& path)
{
    return std::make_unique<RecordingMessageBox>(path);
}

} // namespace talvo
