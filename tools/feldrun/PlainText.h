#pragma once
// Feeds carry descriptions as HTML (escaped or in CDATA) or as text; the
// listener reads them as text, with paragraphs kept as line breaks.

#include <QString>

namespace feldrun {

// Tags removed (script and style with their content), entities decoded,
// blanks collapsed: one line break between paragraphs and list items, and no
// blank lines.
QString PlainTextOf(const QString& html);

// The character an HTML entity name stands for ("amp", "nbsp", "eacute"), or
// an empty string when it is not one of the named entities feeds use.
QString HtmlEntityText(QStringView name);

} // namespace feldrun
