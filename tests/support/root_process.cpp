// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/root_process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace halyard::test {
namespace {

// A status of the child before exec; the errno follows through the start pipe.
constexpr int kNotStarted = 125;

struct Pipe {
  int reader = -1;
  int writer = -1;
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  return {ends[0], ends[1]};
}

bool writeText(const char* path, const std::string& text) {
  const int descriptor = open(path, O_WRONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool written =
      write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(descriptor);
  return written;
}

// The nodes of an unprivileged root are plain files; the host's are put over them.
bool bindDevices(const std::string& folder) {
  for (const char* name : {"null", "zero", "full", "random", "urandom"}) {
    const std::string host = std::string("/dev/") + name;
    if (mount(host.c_str(), (folder + host).c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
  }
  return true;
}

// A sanitizer learns where the stack lies from its memory map, and needs it once something throws.
bool bindMaps(const std::string& folder) {
  const std::string maps = folder + "/proc/self/maps";
  const int descriptor = open(maps.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0444);
  if (descriptor >= 0) close(descriptor);
  return mount("/proc/self/maps", maps.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

// The same for a caller that has no mount name space of its own yet.
bool bindMapsPrivately(const std::string& folder) {
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && bindMaps(folder);
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

struct Streams {
  int input = -1;
  int output = -1;
  int error = -1;
};

struct Input {
  int reader = -1;
  int keyboard = -1;  // Of a terminal, which hangs up when this is closed.
};

Input inputFor(const RunOptions& options) {
  Input input;
  if (options.typed.empty()) {
    input.reader = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return input;
  }
  if (openpty(&input.keyboard, &input.reader, nullptr, nullptr, nullptr) != 0) std::abort();
  for (const int end : {input.keyboard, input.reader}) fcntl(end, F_SETFD, FD_CLOEXEC);
  const auto size = static_cast<ssize_t>(options.typed.size());
  if (write(input.keyboard, options.typed.data(), options.typed.size()) != size) std::abort();
  return input;
}

// Every call that changes or syncs a file or a folder.
constexpr const char* kTracedCalls =
    "trace=openat,write,pwrite64,copy_file_range,ftruncate,fchmod,chmod,fchmodat,fchown,chown,"
    "fchownat,"
    "setxattr,fsetxattr,utimensat,mkdir,mkdirat,symlink,symlinkat,link,linkat,rename,renameat,"
    "renameat2,unlink,unlinkat,rmdir,ioctl,fsync,fdatasync,syncfs,sync,exit_group";

// In the child: the same start with a tracer around it. It reads the paths of descriptors outside
// the root, so it is strace that enters the root, by chroot(8), with the program.
void becomeTracedProgram(const RootProcess& process) {
  std::vector<std::string> words = {"strace",
                                    "-f",
                                    "-qqq",
                                    "--signal=none",
                                    "-y",
                                    "-s",
                                    "64",
                                    "-o",
                                    process.options.traceFile,
                                    "-e",
                                    kTracedCalls,
                                    "chroot",
                                    process.folder,
                                    process.program};
  words.insert(words.end(), process.words.begin() + 1, process.words.end());
  const std::vector<char*> pointers = pointersTo(words);
  const std::vector<char*> environment = pointersTo(process.environment);
  execve("/usr/bin/strace", pointers.data(), environment.data());
}

// Runs in the child; comes back only when the program could not be started.
void becomeProgram(const RootProcess& process, const Streams& streams, uid_t user, gid_t group) {
  setpgid(0, 0);
  dup2(streams.input, STDIN_FILENO);
  dup2(streams.output, STDOUT_FILENO);
  dup2(streams.error, STDERR_FILENO);
  for (const int descriptor : process.options.closedDescriptors) close(descriptor);
  umask(process.options.umask);
  if (!process.options.traceFile.empty()) return becomeTracedProgram(process);
  // Where no mount is possible, programs that throw make a sanitizer report what is not there.
  if (process.options.mayThrow && user == 0) (void)bindMapsPrivately(process.folder);
  if (!enterRoot(process.folder, user, group)) return;
  if (chdir(process.options.workingFolder.c_str()) != 0) return;
  const std::vector<char*> words = pointersTo(process.words);
  const std::vector<char*> environment = pointersTo(process.environment);
  execve(process.program.c_str(), words.data(), environment.data());
}

int outputFor(const RunOptions& options, Pipe& pipe) {
  if (options.stdoutPipeIsBroken) {
    close(pipe.reader);
    pipe.reader = -1;
  }
  if (options.stdoutFile.empty()) return pipe.writer;
  return open(options.stdoutFile.c_str(), O_WRONLY | O_CLOEXEC);
}

// Adds what is there to read; false at the end of the stream.
bool readSome(int descriptor, std::string& text) {
  std::array<char, 65536> buffer{};
  const ssize_t count = read(descriptor, buffer.data(), buffer.size());
  if (count < 0) return errno == EINTR || errno == EAGAIN;
  text.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

// Collects both streams until the process has ended; false when the time ran out first.
// The streams alone do not say so: a process that outlives the command may hold them open.
bool collect(int processDescriptor, const Pipe& output, const Pipe& error, int timeoutSeconds,
             CommandResult& result) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  std::array<pollfd, 3> watched{
      {{output.reader, POLLIN, 0}, {error.reader, POLLIN, 0}, {processDescriptor, POLLIN, 0}}};
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    if (poll(watched.data(), watched.size(), static_cast<int>(left.count())) < 0) continue;
    const bool ended = (watched[2].revents & POLLIN) != 0;
    if (watched[0].revents != 0 && !readSome(output.reader, result.out)) watched[0].fd = -1;
    if (watched[1].revents != 0 && !readSome(error.reader, result.err)) watched[1].fd = -1;
    const bool drained = watched[0].revents == 0 && watched[1].revents == 0;
    if (ended && drained) return true;
  }
}

int statusOf(int waitStatus) {
  return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

void reportFailedStart(int startReader, const RootProcess& process) {
  int number = 0;
  if (read(startReader, &number, sizeof number) == sizeof number) {
    ADD_FAILURE() << process.program << " could not be started in " << process.folder << ": "
                  << strerror(number);
  }
}

}  // namespace

bool enterRoot(const std::string& folder, unsigned userId, unsigned groupId) {
  constexpr std::string_view kHostName = "files1";  // As the root's own configuration names it.
  if (geteuid() == 0) {
    (void)unshare(CLONE_NEWUTS);
  } else {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWUTS) != 0) return false;
    (void)writeText("/proc/self/setgroups",
                    "deny");  // Absent on old kernels, which then need no such word.
    if (!writeText("/proc/self/uid_map", "0 " + std::to_string(userId) + " 1")) return false;
    if (!writeText("/proc/self/gid_map", "0 " + std::to_string(groupId) + " 1")) return false;
    if (!bindDevices(folder)) return false;
    (void)bindMaps(folder);  // Only programs that throw miss it.
  }
  (void)sethostname(kHostName.data(), kHostName.size());
  return chroot(folder.c_str()) == 0 && chdir("/") == 0;
}

CommandResult runInRoot(const RootProcess& process) {
  Pipe output = makePipe();
  const Pipe error = makePipe();
  const Pipe start = makePipe();
  const Input input = inputFor(process.options);
  const Streams streams{input.reader, outputFor(process.options, output), error.writer};

  const uid_t user = geteuid();
  const gid_t group = getegid();
  const pid_t child = fork();
  if (child < 0) std::abort();
  if (child == 0) {
    becomeProgram(process, streams, user, group);
    const int number = errno;
    (void)!write(start.writer, &number, sizeof number);
    _exit(kNotStarted);
  }
  setpgid(child, child);  // Both sides do it, so that neither has to wait for the other.
  close(streams.input);
  if (streams.output != output.writer) close(streams.output);
  for (const int writer : {output.writer, error.writer, start.writer}) close(writer);

  CommandResult result;
  const int processDescriptor = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  const bool inTime =
      collect(processDescriptor, output, error, process.options.timeoutSeconds, result);
  // Before the wait: until then the number still belongs to this group and to no other.
  if (!inTime || !process.options.keepDescendants) kill(-child, SIGKILL);
  int waitStatus = 0;
  while (waitpid(child, &waitStatus, 0) < 0 && errno == EINTR) {
  }
  result.status = statusOf(waitStatus);
  if (!inTime)
    ADD_FAILURE() << process.program << " ran longer than " << process.options.timeoutSeconds
                  << " s";
  reportFailedStart(start.reader, process);
  for (const int descriptor :
       {output.reader, error.reader, start.reader, processDescriptor, input.keyboard}) {
    if (descriptor >= 0) close(descriptor);
  }
  return result;
}

}  // namespace halyard::test
