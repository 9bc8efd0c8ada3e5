#include "PlainText.h"

#include <QRegularExpression>

#include <array>
#include <string_view>

namespace feldrun {

namespace {

struct NamedEntity {
    std::string_view name;
    char32_t code;
};

// The entities feeds use in practice: XML's own, typography, and the
// accented Latin-1 letters, small and capital.
constexpr NamedEntity kNamedEntities[] = {
    {"amp", U'&'},         {"lt", U'<'},          {"gt", U'>'},          {"quot", U'"'},
    {"apos", U'\''},       {"nbsp", U'\u00A0'},   {"copy", U'\u00A9'},   {"reg", U'\u00AE'},
    {"trade", U'\u2122'},  {"hellip", U'\u2026'}, {"mdash", U'\u2014'},  {"ndash", U'\u2013'},
    {"lsquo", U'\u2018'},  {"rsquo", U'\u2019'},  {"sbquo", U'\u201A'},  {"ldquo", U'\u201C'},
    {"rdquo", U'\u201D'},  {"bdquo", U'\u201E'},  {"laquo", U'\u00AB'},  {"raquo", U'\u00BB'},
    {"bull", U'\u2022'},   {"middot", U'\u00B7'}, {"deg", U'\u00B0'},    {"euro", U'\u20AC'},
    {"pound", U'\u00A3'},  {"yen", U'\u00A5'},    {"cent", U'\u00A2'},   {"sect", U'\u00A7'},
    {"para", U'\u00B6'},   {"times", U'\u00D7'},  {"divide", U'\u00F7'}, {"iexcl", U'\u00A1'},
    {"iquest", U'\u00BF'}, {"shy", U'\u00AD'},    {"ordm", U'\u00BA'},   {"ordf", U'\u00AA'},
    {"szlig", U'\u00DF'},  {"agrave", U'\u00E0'}, {"aacute", U'\u00E1'}, {"acirc", U'\u00E2'},
    {"atilde", U'\u00E3'}, {"auml", U'\u00E4'},   {"aring", U'\u00E5'},  {"aelig", U'\u00E6'},
    {"ccedil", U'\u00E7'}, {"egrave", U'\u00E8'}, {"eacute", U'\u00E9'}, {"ecirc", U'\u00EA'},
    {"euml", U'\u00EB'},   {"igrave", U'\u00EC'}, {"iacute", U'\u00ED'}, {"icirc", U'\u00EE'},
    {"iuml", U'\u00EF'},   {"eth", U'\u00F0'},    {"ntilde", U'\u00F1'}, {"ograve", U'\u00F2'},
    {"oacute", U'\u00F3'}, {"ocirc", U'\u00F4'},  {"otilde", U'\u00F5'}, {"ouml", U'\u00F6'},
    {"oslash", U'\u00F8'}, {"ugrave", U'\u00F9'}, {"uacute", U'\u00FA'}, {"ucirc", U'\u00FB'},
    {"uuml", U'\u00FC'},   {"yacute", U'\u00FD'}, {"thorn", U'\u00FE'},  {"yuml", U'\u00FF'},
};

// Capitals of the accented letters sit 0x20 below the small ones in Latin-1.
constexpr char32_t kLatin1CaseOffset = 0x20;
constexpr char32_t kFirstLatin1Small = 0xE0;

QString TextOfCode(char32_t code)
{
    return QString::fromUcs4(&code, 1);
}

QString DecodeEntities(const QString& text)
{
    static const QRegularExpression entity(
        QStringLiteral("&(#[xX][0-9A-Fa-f]{1,6}|#[0-9]{1,7}|[A-Za-z]{2,8});"));
    QString out;
    qsizetype last = 0;
    for (auto it = entity.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        const QStringView name = m.capturedView(1);
        QString replacement;
        if (name.startsWith(u'#')) {
            bool ok = false;
            const bool hex = name.size() > 1 && (name[1] == u'x' || name[1] == u'X');
            const uint code = hex ? name.mid(2).toUInt(&ok, 16) : name.mid(1).toUInt(&ok, 10);
            // Surrogates and values beyond Unicode are no characters.
            if (ok && code > 0 && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF))
                replacement = TextOfCode(code);
        } else
            replacement = HtmlEntityText(name);
        if (replacement.isEmpty())
            continue;
        out += QStringView(text).mid(last, m.capturedStart() - last);
        out += replacement;
        last = m.capturedEnd();
    }
    out += QStringView(text).mid(last);
    return out;
}

} // namespace

QString HtmlEntityText(QStringView name)
{
    for (const NamedEntity& e : kNamedEntities) {
        if (name == QLatin1StringView(e.name.data(), qsizetype(e.name.size())))
            return TextOfCode(e.code);
    }
    // "Eacute" is the capital of "eacute"; "AMP" and the like are no entities.
    if (name.isEmpty() || !name[0].isUpper())
        return {};
    const QString small = name[0].toLower() + name.mid(1).toString();
    const QString smallText = HtmlEntityText(small);
    const char32_t code = smallText.isEmpty() ? 0 : smallText.toUcs4().front();
    if (code < kFirstLatin1Small || code == U'\u00F7' || code == U'\u00FF')
        return {};
    return TextOfCode(code - kLatin1CaseOffset);
}

QString PlainTextOf(const QString& html)
{
    static const QRegularExpression hidden(QStringLiteral("<(script|style)\\b.*?</\\1\\s*>"),
                                           QRegularExpression::CaseInsensitiveOption |
                                               QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression comment(QStringLiteral("<!--.*?-->"),
                                            QRegularExpression::DotMatchesEverythingOption);
    // Tags that end a line: a break, and the start or end of a block.
    static const QRegularExpression lineBreak(
        QStringLiteral("<\\s*(br|/?p|/?div|/?li|/?h[1-6]|/?blockquote|/?tr|/?ul|/?ol|hr)\\b[^>]*>"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression tag(QStringLiteral("<[A-Za-z/!?][^>]*>"));
    static const QRegularExpression blanks(QStringLiteral("[ \\t\\r\\f\\x{000B}\\x{00A0}]+"));
    static const QRegularExpression blanksAroundBreaks(QStringLiteral(" *\\n *"));
    static const QRegularExpression manyBreaks(QStringLiteral("\\n{2,}"));

    QString text = html;
    text.remove(hidden);
    text.remove(comment);
    // Line breaks in the source are blanks in HTML; only tags break lines.
    const bool markup = text.contains(lineBreak);
    if (markup)
        text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    text.replace(lineBreak, QStringLiteral("\n"));
    text.remove(tag);
    text = DecodeEntities(text);
    text.replace(blanks, QStringLiteral(" "));
    text.replace(blanksAroundBreaks, QStringLiteral("\n"));
    text.replace(manyBreaks, QStringLiteral("\n"));
    return text.trimmed();
}

} // namespace feldrun
