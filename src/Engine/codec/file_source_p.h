// SPDX-License-Identifier: MIT
// Reading image files: regular files only, so directories, FIFOs and devices fail at once instead of
// blocking or returning endless data.
#pragma once

#include "codec_p.h"

#include <memory>

namespace voimg::detail {

class FileSource final : public ByteSource {
public:
    FileSource() = default;
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;
    ~FileSource() override;

    // Opens `path` for reading; fails with a one-line reason unless it is a non-empty regular file.
    [[nodiscard]] bool open(const std::string& path, std::string* error);

    [[nodiscard]] uint64_t size() const override { return size_; }
    size_t readAt(uint64_t offset, void* out, size_t length) override;

    // Reads the whole file into a fresh buffer; `length` receives the byte count actually read.
    [[nodiscard]] std::unique_ptr<uint8_t[]> readAll(size_t& length, std::string* error);

private:
    int fd_ = -1;
    uint64_t size_ = 0;
};

}  // namespace voimg::detail
