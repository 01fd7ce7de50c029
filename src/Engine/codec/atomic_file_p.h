// SPDX-License-Identifier: MIT
// Writing a file so that readers see either the old content or the complete new one, never a part.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace voimg::detail {

// A temporary ".<name>.XXXXXX" beside the destination; commit() renames it over the destination. Without a
// successful commit() the temporary file is removed when the object goes away.
class AtomicFile {
public:
    AtomicFile() = default;
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    ~AtomicFile();

    // Creates the temporary file; fails (with a one-line reason) when the destination is a directory or its
    // folder does not accept new files.
    [[nodiscard]] bool open(const std::string& destination, std::string* error);

    // Stream for writing the content.
    [[nodiscard]] FILE* stream() const { return stream_; }

    // Flushes, closes and renames into place; on failure the temporary file is removed.
    [[nodiscard]] bool commit(std::string* error);

private:
    void discard();

    std::string destination_;
    std::string temporary_;
    std::unique_ptr<char[]> buffer_;  // the stream's, larger than stdio's own
    FILE* stream_ = nullptr;
};

}  // namespace voimg::detail
