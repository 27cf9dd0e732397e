# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# fish completion for drivectl(8)
complete -c drivectl -f -a '(__halyard_complete)'
