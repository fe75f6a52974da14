// Untrusted text made safe for terminals and log lines: what steers a terminal or breaks a line
// is shown as an escape, everything people read stays as it is.
#include <gtest/gtest.h>

#include "platform/Log.h"
#include "platform/Text.h"

namespace {

using Platform::printable;

TEST(TextTest, ControlsAndBrokenUtf8AreShownVisiblyAndTheRestIsKept) {
  const std::pair<std::string, std::string> cases[] = {
      {"spine-1 (rack 4)", "spine-1 (rack 4)"},
      {"a\\b", "a\\b"},                                   // a backslash stays
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\x9e", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\x9e"},  // é € 📞
      {"\x1b[2J\x1b[Hroot# ", "\\x1b[2J\\x1b[Hroot# "},    // clear screen, cursor home
      {"a\nb\rc\td\x7f", "a\\nb\\rc\\td\\x7f"},            // line breaks, tab, DEL
      {std::string("a\0b", 3), "a\\x00b"},
      {"\xc2\x9b" "31m", "\\u009b31m"},                    // C1 CSI, valid UTF-8
      {"\xe2\x80\xae" "gnp.exe", "\\u202egnp.exe"},        // right-to-left override
      {"x\xe2\x80\xa8y", "x\\u2028y"},                     // line separator
      {"\xff\xfe", "\\xff\\xfe"},                          // never UTF-8
      {"\xc3", "\\xc3"},                                   // cut short at the end
      {"\xc3(", "\\xc3("},                                 // cut short by the next character
      {"\xc0\xaf", "\\xc0\\xaf"},                          // overlong '/'
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},                 // a surrogate
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},        // beyond U+10FFFF
  };
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(printable(in), out) << in;
    EXPECT_EQ(Platform::isPrintable(in), in == out) << in;
  }
  EXPECT_EQ(Platform::displayWidth("caf\xc3\xa9"), 4u);
}

TEST(TextTest, LogLinesCannotBeForgedByTheirArguments) {
  static const Platform::LogHandle<std::string_view, std::string_view> kTestCleared(
      {"TEST_CLEARED", Platform::Severity::notice, "cleared by %s on %s", "Explanation.",
       Platform::kNoActionRequired, 0, {"REQUESTER", "ORIGIN"}});
  Platform::CapturingLogSink sink;
  kTestCleared.emit("root", "tty1\nLLDP_AGENT_STOPPED: \x1b[8mhidden");
  ASSERT_EQ(sink.entries().size(), 1u);
  EXPECT_EQ(sink.entries()[0].text, "cleared by root on tty1\\nLLDP_AGENT_STOPPED: \\x1b[8mhidden");
  EXPECT_EQ(sink.entries()[0].arguments[1], "tty1\\nLLDP_AGENT_STOPPED: \\x1b[8mhidden");
}

}  // namespace
