// A plug-in that costs next to nothing beside its dump, for backup_bench.
//
//   dump_plugin -cmd backup -path FOLDER ...     writes FOLDER/dump, 100 KiB that do not compress
//
// Anything else that it is asked does nothing and succeeds.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

int main(int argc, char** argv) {
  if (argc < 5 || std::string_view(argv[2]) != "backup") return 0;
  std::array<std::uint64_t, 12800> words;
  std::uint64_t state = 1;
  for (std::uint64_t& word : words) {
    state = state * 6364136223846793005U + 1442695040888963407U;
    word = state ^ (state >> 29);
  }
  const int file = ::open((std::string(argv[4]) + "/dump").c_str(),
                          O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool written = ::write(file, words.data(), sizeof words) == ssize_t{sizeof words};
  return written && ::close(file) == 0 ? 0 : 1;
}
