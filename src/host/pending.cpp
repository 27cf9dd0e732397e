// Until tree copies and the snapshot engine land: everything fails. Goes with them.
#include "host/snapshot_engine.h"
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
__attribute__((weak)) std::optional<BackupSession> defaultBackupSession(const std::string&) {
  return std::nullopt;
}
__attribute__((weak)) std::int32_t DeleteSnapshot(const BackupSession&, const std::string&) {
  return kNotASnapshot;
}
}  // namespace halyard::host
