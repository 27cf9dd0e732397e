// Until tree copies land: everything fails. Goes with them.
#include "host/tree_copy.h"
namespace halyard::host {
__attribute__((weak)) std::optional<StagedCopy> StagedCopy::stage(const std::string&,
                                                                  const std::string&) {
  return std::nullopt;
}
__attribute__((weak)) StagedCopy::StagedCopy(StagedCopy&& other) noexcept = default;
__attribute__((weak)) StagedCopy::~StagedCopy() = default;
__attribute__((weak)) bool StagedCopy::publish() { return false; }
__attribute__((weak)) bool copyItem(const std::string&, const std::string&) { return false; }
}  // namespace halyard::host
