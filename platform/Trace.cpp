#include "platform/Trace.h"

#include <cstdarg>
#include <cstdio>

namespace talvo {

const QLoggingCategory& TraceCategory()
{
    // Debug output of this category is off by default (warnings stay on).
    static QLoggingCategory category("talvo.trace", QtWarningMsg);
    static const bool enabled = [] {
        if (qEnvironmentVariable("TALVOPLAYER_TRACE") == QLatin1String("1"))
            category.setEnabled(QtDebugMsg, true);
        return true;
    }();
    (void)enabled;
    return category;
}

void Trace(const char* format, ...)
{
    // The longest trace text is a short sentence with a number or two.
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    qCDebug(TraceCategory()).noquote() << text;
}

} // namespace talvo
