// SPDX-License-Identifier: MIT
// Runs the built vothumb as a child process and reports how it ended, what it wrote to standard error and
// how much memory it took at its peak.
#pragma once

#include <string>
#include <vector>

namespace vo::test {

struct ChildRun {
    bool exited = false;   // ended by exit(), not by a signal
    int exitStatus = -1;   // 0..255 when exited
    int signal = 0;        // the signal that ended it otherwise
    bool timedOut = false; // killed because it ran past the time limit
    std::string standardError;
    std::string standardOutput;
    long peakRssKb = 0;    // the child's maximum resident set size
    double seconds = 0;
};

// Runs vothumb with the arguments (not counting the program name), in `workingDirectory` when given, and
// kills it after `timeoutSeconds`.
[[nodiscard]] ChildRun runVothumb(const std::vector<std::string>& arguments, int timeoutSeconds = 60,
                                  const std::string& workingDirectory = "");

// How many times `needle` occurs in `text`.
[[nodiscard]] int countOccurrences(const std::string& text, const std::string& needle);

// The names of the entries of a folder, sorted.
[[nodiscard]] std::vector<std::string> folderEntries(const std::string& folder);

}  // namespace vo::test
