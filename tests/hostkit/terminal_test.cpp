// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Tables and the bar of a run as terminals of every kind get them.
#include "common/terminal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>

#include "common/sizes.h"
#include "common/table.h"
#include "helmsman/run/run_display.h"

namespace halyard::hostkit {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const TableRows kSnapshots = {
    {"SNAPSHOT", "ITEMS", "SIZE", "STATE"},
    {"2026-11-20-020100", "120", "20.0 GiB", "in progress or interrupted"},
    {"2026-11-21-020100", "7", "1.0 KiB", "latest"},
};

std::vector<std::size_t> lineWidths(const std::string& text) {
  std::vector<std::size_t> widths;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = text.find('\n', begin);
    widths.push_back(columnsOf(text.substr(begin, end - begin)));
    begin = end + 1;
  }
  return widths;
}

TEST(Table, IsAsWideAsItNeedsWithoutATerminal) {
  EXPECT_EQ(tableText(kSnapshots, 0),
            "SNAPSHOT           ITEMS  SIZE      STATE\n"
            "2026-11-20-020100  120    20.0 GiB  in progress or interrupted\n"
            "2026-11-21-020100  7      1.0 KiB   latest\n");
}

TEST(Table, FoldsTheLastColumnOnANarrowTerminal) {
  EXPECT_EQ(tableText(kSnapshots, 50),
            "SNAPSHOT           ITEMS  SIZE      STATE\n"
            "2026-11-20-020100  120    20.0 GiB  in progress or\n"
            "                                    interrupted\n"
            "2026-11-21-020100  7      1.0 KiB   latest\n");
}

TEST(Table, ShowsEveryFigureWholeInFortyColumns) {
  const std::string text = tableText(kSnapshots, 40);
  EXPECT_EQ(text,
            "SNAPSHOT  2026-11-20-020100\n"
            "ITEMS     120\n"
            "SIZE      20.0 GiB\n"
            "STATE     in progress or interrupted\n"
            "\n"
            "SNAPSHOT  2026-11-21-020100\n"
            "ITEMS     7\n"
            "SIZE      1.0 KiB\n"
            "STATE     latest\n");
  EXPECT_THAT(lineWidths(text), Each(testing::Le(40U)));
}

TEST(Table, MeasuresWideLettersAsTerminalsShowThem) {
  // Two letters of two columns each, and an "a" with a mark above it that takes none.
  EXPECT_EQ(tableText({{"NAME", "X"}, {"\xE6\xBC\xA2\xE5\xAD\x97", "1"}, {"a\xCC\x88", "2"}}, 0),
            "NAME  X\n\xE6\xBC\xA2\xE5\xAD\x97  1\na\xCC\x88     2\n");
}

TEST(Table, FoldsLongFactsInsteadOfCuttingThem) {
  const TableRows facts = {{"Device:", "/dev/sda1"},
                           {"UUID:", "9c2b9a10-4e5b-4d0e-8b57-3b6f5d1c7a01 (of the filesystem)"}};
  const std::string text = factsText(facts, 40);
  EXPECT_THAT(lineWidths(text), Each(testing::Le(40U)));
  std::string whole;
  for (const char letter : text.substr(text.find("UUID:") + 5)) {
    if (letter != '\n' && letter != ' ') whole += letter;
  }
  EXPECT_EQ(whole, "9c2b9a10-4e5b-4d0e-8b57-3b6f5d1c7a01(ofthefilesystem)");
}

TEST(Table, FoldsBetweenWords) {
  EXPECT_EQ(factsText({{"Automatic:", "every day at 02:00, snapshots kept for 30 days"}}, 30),
            "Automatic:  every day at\n"
            "            02:00, snapshots\n"
            "            kept for 30 days\n");
}

TEST(Table, FoldsALongPathBehindASlash) {
  EXPECT_EQ(
      tableText({{"SERVICE", "LOG"}, {"depotHost", "see /private/var/log/halyard/depotHost.log"}},
                40),
      "SERVICE    LOG\n"
      "depotHost  see\n"
      "           /private/var/log/halyard/\n"
      "           depotHost.log\n");
}

TEST(Table, FoldsAWordThatHasNoPlaceForItAnywhere) {
  EXPECT_EQ(factsText({{"A:", "0123456789abcdefghij \xE6\xBC\xA2"}}, 16),
            "A:  0123456789ab\n    cdefghij \xE6\xBC\xA2\n");
}

TEST(Table, OnAHardlyUsableTerminalNothingIsCutOff) {
  EXPECT_EQ(factsText({{"Automatic:", "every day"}}, 5), "Automatic:  every day\n");
}

TEST(Table, ACellCannotBeginALineOrMoveTheCursor) {
  EXPECT_EQ(tableText({{"A", "B"}, {"x\ny", "\033[2J"}}, 0), "A       B\nx\\x0Ay  \\x1B[2J\n");
}

TEST(Table, WithoutRowsIsEmpty) {
  EXPECT_EQ(tableText({}, 0), "");
  EXPECT_EQ(factsText({}, 40), "");
}

TEST(Cut, EndsBeforeALetterThatWouldNotFit) {
  EXPECT_EQ(cutToColumns("a\xE6\xBC\xA2\xE5\xAD\x97", 4), "a\xE6\xBC\xA2");
  EXPECT_EQ(cutToColumns("\xC3\xA4\xC3\xB6x", 2), "\xC3\xA4\xC3\xB6");
  EXPECT_EQ(cutToColumns("\xFFxy", 2), "\xFFx");
  EXPECT_EQ(cutToColumns("short", 80), "short");
}

TEST(Sizes, NeverShowAThousandAndTwentyFourOfAUnit) {
  EXPECT_EQ(sizeText(0), "0 B");
  EXPECT_EQ(sizeText(1023), "1023 B");
  EXPECT_EQ(sizeText(1024), "1.0 KiB");
  const std::uint64_t kib = 1024;
  EXPECT_EQ(sizeText(kib * kib - 1), "1.0 MiB");
  EXPECT_EQ(sizeText(1023 * kib + 921), "1023.9 KiB");
  EXPECT_EQ(sizeText(UINT64_MAX), "16.0 EiB");
}

// A terminal of 40 columns in place of standard error.
class TerminalForErrors {
 public:
  explicit TerminalForErrors(const char* term) : before_(::dup(STDERR_FILENO)) {
    winsize size{};
    size.ws_col = 40;
    size.ws_row = 24;
    if (::openpty(&screen_, &line_, nullptr, nullptr, &size) != 0) std::abort();
    (void)::dup2(line_, STDERR_FILENO);
    term == nullptr ? ::unsetenv("TERM") : ::setenv("TERM", term, 1);
  }
  ~TerminalForErrors() {
    (void)::dup2(before_, STDERR_FILENO);
    for (const int descriptor : {before_, line_, screen_}) (void)::close(descriptor);
  }
  TerminalForErrors(const TerminalForErrors&) = delete;
  TerminalForErrors& operator=(const TerminalForErrors&) = delete;

  // What is shown comes through the kernel in pieces: the end is marked, and read up to.
  std::string shown() const {
    constexpr char kEnd = '\a';
    (void)std::fflush(stderr);
    (void)!::write(line_, &kEnd, 1);
    std::string text;
    for (char letter = 0; ::read(screen_, &letter, 1) == 1 && letter != kEnd;) text += letter;
    return text;
  }

 private:
  int before_;
  int screen_ = -1;
  int line_ = -1;
};

std::string runShownOn(const char* term) {
  const TerminalForErrors terminal(term);
  RunDisplay display(RunDisplay::Form::automatic, false);
  display.started({"depotHost"});
  display.phase("a phase whose text is longer than the terminal of this test is wide");
  display.clearBar();
  return terminal.shown();
}

TEST(RunBar, IsDrawnOverItselfWithinTheTerminalAndWithoutColours) {
  const std::string text = runShownOn("xterm");
  EXPECT_THAT(text, StartsWith("\r\033[K["));
  EXPECT_THAT(text, Not(HasSubstr("\n")));
  for (std::size_t at = text.find("\033["); at != std::string::npos;
       at = text.find("\033[", at + 1)) {
    EXPECT_EQ(text[at + 2], 'K') << "something else than taking the line away";
  }
  const std::size_t last = text.rfind("a phase");
  ASSERT_NE(last, std::string::npos);
  EXPECT_LT(text.find('\r', last) - text.rfind("[K", last) - 2, 40U);
}

TEST(RunBar, IsNotDrawnOnADumbTerminal) {
  for (const char* term : {"dumb", "", static_cast<const char*>(nullptr)}) {
    const std::string text = runShownOn(term);
    EXPECT_THAT(text, Not(HasSubstr("\033")));
    EXPECT_THAT(text, HasSubstr("longer than the terminal of this test is wide\r\n"));
  }
}

TEST(Terminal, AFileIsNone) {
  const int file = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ::setenv("TERM", "xterm", 1);
  EXPECT_EQ(terminalWidth(file), 0U);
  EXPECT_FALSE(canRedraw(file));
  (void)::close(file);
}

}  // namespace
}  // namespace halyard::hostkit
