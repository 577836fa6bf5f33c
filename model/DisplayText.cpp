#include "DisplayText.h"

#include <algorithm>

namespace harkline {

namespace {

constexpr QChar kReplacement(0xFFFD);
constexpr QChar kFirstStrongIsolate(0x2068);
constexpr QChar kPopDirectionalIsolate(0x2069);

bool isBidiControl(char32_t c)
{
    return (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

bool isLineBreak(char16_t c)
{
    return c == '\n' || c == '\r' || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool isControl(char32_t c)
{
    return c < 0x20 || (c >= 0x7F && c <= 0x9F);
}

} // namespace

bool changesDisplay(char32_t c)
{
    return isControl(c) || isBidiControl(c) || c == 0x2028 || c == 0x2029;
}

QString inertText(const QString& text, TextLines lines)
{
    // Most texts are clean: hand the same shared string back without copying it.
    if (std::none_of(text.begin(), text.end(), [](QChar c) { return changesDisplay(c.unicode()); }))
        return text;

    QString out;
    out.reserve(text.size());
    const QChar lineBreak = lines == TextLines::Many ? QChar('\n') : QChar(' ');
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (isBidiControl(c))
            continue;
        if (isLineBreak(c)) {
            // CR LF is one break, not two.
            if (c == '\r' && i + 1 < text.size() && text.at(i + 1) == QLatin1Char('\n'))
                ++i;
            out.append(lineBreak);
        } else if (c == '\t') {
            out.append(QLatin1Char(' '));
        } else if (isControl(c)) {
            out.append(kReplacement);
        } else {
            out.append(QChar(c));
        }
    }
    return out;
}

QString inertText(std::string_view utf8, TextLines lines)
{
    return inertText(QString::fromUtf8(utf8.data(), qsizetype(utf8.size())), lines);
}

QString isolated(const QString& text)
{
    if (text.isEmpty())
        return text;
    QString out;
    out.reserve(text.size() + 2);
    out.append(kFirstStrongIsolate);
    out.append(text);
    out.append(kPopDirectionalIsolate);
    return out;
}

} // namespace harkline
