// The folders above a live file, made again inside a copy root.
#pragma once

#include <string>

namespace halyard {

/// Makes inside `copyRoot` the folders above `source`, a live path; failures are ignored.
///
/// Kept: the folder that directly holds the leaf is not made: /a/b/c/d gives <root>/a and
/// <root>/a/b. Kept: each folder gets owner, group and permissions of the source folder one level
/// above the one that it mirrors: <root>/a those of "/". A missing copy root is made first, with
/// default attributes.
void mirrorAncestorDirectories(const std::string& source, const std::string& copyRoot);

}  // namespace halyard
