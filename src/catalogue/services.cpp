// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "catalogue/services.h"

#include <string>

#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"

namespace halyard {

void Services() {
  const FunctionLog scope(__func__);
  repairMissingPreferences();
  forEachServiceKey([](const std::string& key) {
    printText("%s\n", key.c_str());
    return true;
  });
}

}  // namespace halyard
