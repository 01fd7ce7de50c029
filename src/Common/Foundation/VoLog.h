// SPDX-License-Identifier: MIT
// The toolkit's diagnostics: one plain line per message on standard error, prefixed like the platform
// log ("2026-11-21 23:55:38.123 vothumb[4242:4242] message"). There are no levels. A message that ends
// in "\n" gives an extra empty line, as it does on the platform.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vo {

void VoLog(std::string_view message);

// The whole line VoLog would write for `message` now, newline included.
[[nodiscard]] std::string VoLogLine(std::string_view message);

// Redirects log lines (for tests); an empty function restores standard error. Returns the previous sink.
using VoLogSink = std::function<void(const std::string& line)>;
VoLogSink VoSetLogSink(VoLogSink sink);

}  // namespace vo
