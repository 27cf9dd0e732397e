// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/progress_follower.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <utility>

#include "helmsman/program/halyard_run.h"

namespace halyard::hostkit {

namespace {

constexpr std::chrono::milliseconds kPause{200};

// Hands the new bytes to the reader; returns the position up to which the file was read.
std::uintmax_t readFrom(const std::string& path, std::uintmax_t position, LineReader& lines) {
  std::error_code missing;
  const std::uintmax_t size = std::filesystem::file_size(path, missing);
  if (missing) return position;
  if (size < position) {
    // Emptied for a new phase: half a line of the old one means nothing any more.
    lines.drop();
    position = 0;
  }
  std::ifstream file(path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(position));
  std::array<char, 4096> buffer{};
  while (file.read(buffer.data(), buffer.size()) || file.gcount() > 0) {
    const auto count = static_cast<std::size_t>(file.gcount());
    lines.take(std::string_view(buffer.data(), count));
    position += count;
  }
  return position;
}

}  // namespace

ProgressFollower::ProgressFollower(std::string path, StepHandler handler)
    : path_(std::move(path)),
      handler_(std::move(handler)),
      thread_([this](const std::stop_token& stop) { follow(stop); }) {}

ProgressFollower::~ProgressFollower() {
  thread_.request_stop();
  thread_.join();
}

void ProgressFollower::follow(const std::stop_token& stop) {
  LineReader lines([this](std::string_view line) {
    if (const auto step = parseProgressLine(line)) handler_(*step);
  });
  std::uintmax_t position = 0;
  std::mutex mutex;
  std::condition_variable_any pause;
  while (!stop.stop_requested()) {
    position = readFrom(path_, position, lines);
    std::unique_lock lock(mutex);
    pause.wait_for(lock, stop, kPause, [] { return false; });
  }
  (void)readFrom(path_, position, lines);
}

}  // namespace halyard::hostkit
