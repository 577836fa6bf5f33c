#pragma once

#include <QString>

#include <string_view>

namespace harkline {

// Text that came from the daemon (titles, projects, phone names, hosts, last texts) as it may be
// shown: inert, so that it can neither drive the terminal or the toolkit nor reorder what stands
// around it.
//
// - C0 and C1 controls and DEL become U+FFFD, a visible mark, except the whitespace of the
//   layout: a tab is a space, and a line break (LF, CR, CR LF, U+2028, U+2029, U+0085) is a
//   space on one line or one LF where the text may take several lines. Qt, for one, reads
//   U+009C as a separator between alternative texts and would show only one of them.
// - Explicit bidi embeddings, overrides and isolates (U+202A to U+202E, U+2066 to U+2069) are
//   dropped: one left open would reverse what follows the text.
enum class TextLines { One, Many };

// Whether the code point changes how text is shown rather than being shown: a C0 or C1 control,
// DEL, a line or paragraph separator, an explicit bidi embedding, override or isolate.
bool changesDisplay(char32_t c);

QString inertText(std::string_view utf8, TextLines lines = TextLines::One);
QString inertText(const QString& text, TextLines lines = TextLines::One);

// `text` as a first-strong bidi isolate (U+2068 ... U+2069), so that its own direction cannot
// move its neighbours, such as the counts after a host or the time after a project. Empty stays
// empty. Apply to inert text only: the isolate holds because the text has no controls left.
QString isolated(const QString& text);

// Both: daemon text ready to be put between other texts.
inline QString daemonText(std::string_view utf8, TextLines lines = TextLines::One)
{
    return isolated(inertText(utf8, lines));
}

} // namespace harkline
