# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# fish completion for snapwheel(8)
complete -c snapwheel -f -a '(__halyard_complete)'
