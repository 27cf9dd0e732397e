#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# The links of the pages lead somewhere: here those of the sources, and in packaging/build those of the packages.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"

links() { "$source_dir/packaging/doc-links" "$@"; }

check "the pages of the sources" links "$source_dir"/*.md "$source_dir"/{docs,services,hostkit,tests}

pages=$(mktemp -d)
trap 'rm -rf -- "$pages"' EXIT
# shellcheck disable=SC2016
printf '%s\n' '[one](two.md#part) [out](https://nowhere.invalid/x) `[code](gone.md)`' >"$pages/one.md"
checkEqual "a link that leads nowhere" "$pages/one.md: two.md leads nowhere" "$(links "$pages")"
: >"$pages/two.md"
check "a link to a part of a page, one out of the tree, and code" links "$pages"
rm -- "$pages"/*.md
checkEqual "a folder without pages" "there is no page below $pages" "$(links "$pages")"
finishTests
