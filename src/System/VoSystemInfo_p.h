// SPDX-License-Identifier: MIT
// State shared by the units of VoSystemInfo.
#pragma once

#include <memory>

namespace vo {
class VoKernel;
class VoTaskLauncher;
}  // namespace vo

namespace vo::detail {

// The sources set with VoSystemInfo::setKernel / setTaskLauncher, or the real ones.
[[nodiscard]] std::shared_ptr<VoKernel> systemInfoKernel();
[[nodiscard]] std::shared_ptr<VoTaskLauncher> systemInfoTaskLauncher();

// Forgets the snapshot, back to the state before the first load (for tests that need no snapshot).
void discardSystemProfile();

}  // namespace vo::detail
