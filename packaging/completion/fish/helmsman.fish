# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# fish completion for helmsman(8)
complete -c helmsman -f -a '(__halyard_complete)'
