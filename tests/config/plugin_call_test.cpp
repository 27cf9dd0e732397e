// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "config/plugin_call.h"

#include <gmock/gmock.h>

#include "support/scoped_run_state.h"
#include "support/scratch.h"

namespace halyard {
namespace {

using testing::ElementsAre;

class PluginCallTest : public testing::Test {
 protected:
  // A plug-in that prints its arguments, complains, and ends with 3.
  std::string plugin() {
    scratch_.write("plugin", "#!/bin/sh\necho \"$*\"\necho complaint >&2\nexit 3\n");
    std::filesystem::permissions(scratch_ / "plugin", std::filesystem::perms::owner_all);
    return scratch_ / "plugin";
  }

  test::Scratch scratch_;
  test::ScopedRunState state_;
};

TEST_F(PluginCallTest, TheWordsEndAtTheFirstAbsentOne) {
  const PluginCall call("/p", {"-cmd", "restore", "-log", std::nullopt, "-target", "/"});
  EXPECT_THAT(call.arguments, ElementsAre("-cmd", "restore", "-log"));
}

TEST_F(PluginCallTest, AnOptionStandsAtTheEndAndAnAbsentOneNowhere) {
  PluginCall call("/p", {"-cmd", "browse"});
  call.addOption(std::nullopt);
  EXPECT_THAT(call.arguments, ElementsAre("-cmd", "browse"));
  call.addOption("all");
  EXPECT_THAT(call.arguments, ElementsAre("-cmd", "browse", "-opt", "all"));
}

TEST_F(PluginCallTest, ItsOutputIsCapturedAndItsErrorsAreNot) {
  const host::TaskResult result = PluginCall(plugin(), {"-cmd", "verify"}).run();
  EXPECT_EQ(result.output, "-cmd verify\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.status, 3);
}

TEST_F(PluginCallTest, ItsOutputGoesToASink) {
  std::string seen;
  const auto sink = [&seen](std::string_view piece) { seen += piece; };
  EXPECT_EQ(PluginCall(plugin(), {"-cmd", "size"}).run(sink).output, "");
  EXPECT_EQ(seen, "-cmd size\n");
}

TEST_F(PluginCallTest, UnheardItsOutputIsKeptInDebugModeOnly) {
  const PluginCall call(plugin(), {"-cmd", "backup"});
  EXPECT_EQ(call.runUnheard().output, "");
  runState().debug = true;
  const host::TaskResult result = call.runUnheard();
  EXPECT_EQ(result.output, "-cmd backup\n");
  EXPECT_EQ(result.status, 3);
}

TEST_F(PluginCallTest, WithoutAnExecutableNothingIsStarted) {
  EXPECT_EQ(PluginCall(std::nullopt, {"-cmd", "backup"}).run().status, 127);
}

}  // namespace
}  // namespace halyard
