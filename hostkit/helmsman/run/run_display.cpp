// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/run_display.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/messages.h"
#include "common/sizes.h"
#include "common/table.h"
#include "common/terminal.h"
#include "common/visible_text.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kBarWidth = 24;

std::string withoutDots(std::string_view message) {
  while (message.ends_with('.')) message.remove_suffix(1);
  return std::string(message);
}

// Of no interest in a record that is read afterwards.
bool isSizeStep(const ProgressStep& step) {
  return step.message == texts::kSizeDone || step.message == texts::kSizeBegun;
}

std::string stepText(const ProgressStep& step) {
  return step.service.empty() ? withoutDots(step.message)
                              : step.service + ": " + withoutDots(step.message);
}

std::vector<std::string> problemLines(const RunRecord& record) {
  std::vector<std::string> lines = record.problems;
  for (const ServiceResult& service : record.services) {
    for (const std::string& problem : service.problems) {
      lines.push_back(service.name + ": " + problem);
    }
  }
  return lines;
}

}  // namespace

RunDisplay::RunDisplay(Form form, bool quiet)
    : json_(form == Form::json), bar_(form != Form::json && !quiet && canRedraw(STDERR_FILENO)) {}

void RunDisplay::started(const std::vector<std::string>& services) {
  total_ = services.size();
  if (json_) {
    printJsonLine({{"event", "started"}, {"services", services}});
  } else if (bar_) {
    drawBar("starting");
  }
}

void RunDisplay::step(const ProgressStep& step) {
  if (step.message == texts::kSizeDone) sized_.insert(step.service);
  if (step.message == texts::kServiceDone) ended_.insert(step.service);
  if (json_) {
    printJsonLine(
        {{"event", "step"},
         {"service", step.service.empty() ? nlohmann::json() : nlohmann::json(step.service)},
         {"message", step.message},
         {"fraction", progressFraction(sized_.size(), ended_.size(), total_)}});
  } else if (bar_) {
    drawBar(stepText(step));
  } else if (!isSizeStep(step)) {
    printNote(stepText(step));
  }
}

void RunDisplay::phase(const std::string& text) {
  if (json_) {
    printJsonLine({{"event", "phase"}, {"message", text}});
  } else if (bar_) {
    drawBar(text);
  } else {
    printNote(text);
  }
}

void RunDisplay::drawBar(const std::string& text) {
  const double fraction = progressFraction(sized_.size(), ended_.size(), total_);
  std::string line = progressBar(fraction, kBarWidth) + " " + std::to_string(ended_.size()) + "/" +
                     std::to_string(total_) + " " + visibleText(text);
  // A line that wraps could not be taken away again.
  line = cutToColumns(line, terminalWidth(STDERR_FILENO) - 1);
  // Back to the start of the line, and away with what stood there.
  (void)std::fprintf(stderr, "\r\033[K%s", line.c_str());
}

void RunDisplay::clearBar() {
  if (bar_) (void)std::fputs("\r\033[K", stderr);
}

void RunDisplay::finished(const RunRecord& record) {
  clearBar();
  if (json_) {
    nlohmann::json document = recordJson(record);
    document["event"] = "finished";
    printJsonLine(document, JsonLine::last);
    return;
  }
  for (const std::string& line : problemLines(record)) printError(line);
  for (const ServiceResult& service : record.services) {
    const std::string log = logText(service);
    if (!log.empty()) printError(service.name + ": " + log);
  }
  (void)std::fputs(summaryText(record).c_str(), stdout);
}

double progressFraction(std::size_t sized, std::size_t ended, std::size_t total) {
  if (total == 0) return 0;
  const double done =
      0.1 * static_cast<double>(std::max(sized, ended)) + 0.9 * static_cast<double>(ended);
  return std::min(1.0, done / static_cast<double>(total));
}

std::string progressBar(double fraction, std::size_t width) {
  const auto full = static_cast<std::size_t>(fraction * static_cast<double>(width));
  return "[" + std::string(full, '#') + std::string(width - full, '-') + "]";
}

std::string summaryText(const RunRecord& record) {
  std::vector<std::vector<std::string>> rows = {{"SERVICE", "RESULT", "COPIED", "SIZE"}};
  for (const ServiceResult& service : record.services) {
    std::string copied = service.copied ? std::to_string(*service.copied) : "-";
    if (!service.missing.empty()) {
      copied += " (" + std::to_string(service.missing.size()) + " not on this host)";
    }
    rows.push_back({service.name, resultWord(service), copied, sizeText(service.bytes)});
  }
  std::string text = record.services.empty() ? "" : tableText(rows);
  if (!record.snapshot.empty()) text += "Snapshot: " + visibleText(record.snapshot) + "\n";
  const std::size_t problems = problemLines(record).size();
  text += std::string("Result: ") + resultWord(record.result);
  if (problems > 0) {
    text += ", " + std::to_string(problems) + (problems == 1 ? " problem" : " problems");
  }
  return text + "\n";
}

}  // namespace halyard::hostkit
