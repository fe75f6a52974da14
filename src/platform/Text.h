// Text that came from the wire or from a client, made safe for a terminal or a log line.
#pragma once

#include <string>
#include <string_view>

namespace Platform {

// Appends text to out with everything that could move a cursor, end a line, change colours or
// reorder what a terminal shows written visibly instead: C0 controls and DEL as \n, \r, \t or
// \x1b; C1 controls, line and paragraph separators and bidirectional controls as \u009b; and
// each byte that is not part of valid UTF-8 as \xff. Printable ASCII and valid UTF-8 otherwise
// stay as they are (a backslash too: the escapes are for people, not for parsing back).
void appendPrintable(std::string& out, std::string_view text);
std::string printable(std::string_view text);
// Whether printable(text) would be text itself.
bool isPrintable(std::string_view text);

// Columns a printable text takes on a terminal: one per code point (enough for alignment of
// names; wide East Asian characters count one).
size_t displayWidth(std::string_view text);

}  // namespace Platform
