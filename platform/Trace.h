#pragma once
// Trace texts ("waveOutReset failed with error %d.") for a developer: formatted
// as printf would, then handed to the debug category "talvo.trace", which is
// off unless TALVOPLAYER_TRACE=1 (or QT_LOGGING_RULES enables it).  Nothing
// is shown to the user and nothing is written to a file.  Any thread.
#include <QLoggingCategory>

namespace talvo {

const QLoggingCategory& TraceCategory();

void Trace(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace talvo
