// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The texts of single property-list values: numbers and base64.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halyard {

/// What XML counts as white space.
bool isXmlSpace(char c);

/// A sign and decimal or "0x" digits, white space around them; absent for anything else and for
/// what does not fit 64 bits.
std::optional<std::int64_t> parseInteger(std::string_view text);

/// A decimal number with or without exponent, or "nan", "inf", "infinity" in any case, with a sign
/// or not, white space around it; absent for anything else and for what no double can hold.
std::optional<double> parseReal(std::string_view text);

/// The shortest text that parseReal reads as the same number.
std::string realText(double value);

/// Decodes base64 with white space anywhere; absent unless the text is padded to whole groups and
/// holds nothing else.
std::optional<std::string> decodeBase64(std::string_view text);

/// Appends the base64 of `bytes`, with padding and without line breaks.
void appendBase64(std::string_view bytes, std::string& text);

}  // namespace halyard
