// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What starting and ending a program with the same libraries costs, and nothing else.
int main() {}
