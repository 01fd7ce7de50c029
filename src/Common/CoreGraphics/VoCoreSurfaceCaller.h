// SPDX-License-Identifier: MIT
// caller(): a lock-debugging aid that names the method which called the function calling it, read from
// the current thread's call-stack symbols. Nothing in the toolkit calls it.
#pragma once

#include <string>
#include <vector>

namespace vo {

// The name in stack line 2 (counting from 0), between its first "-" and the first "+" after it, trimmed;
// "UNKNOWN" when there are fewer than 3 lines, or the line has no "-" or no "+".
[[nodiscard]] std::string caller();
// The same rule on given symbol lines.
[[nodiscard]] std::string callerFromStackSymbols(const std::vector<std::string>& symbols);

}  // namespace vo
