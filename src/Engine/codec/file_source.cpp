// SPDX-License-Identifier: MIT
// Reading image files with plain POSIX calls.
#include "file_source_p.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace voimg::detail {

FileSource::~FileSource() {
    if (fd_ >= 0) ::close(fd_);
}

bool FileSource::open(const std::string& path, std::string* error) {
    if (path.empty()) {
        setError(error, "empty file name");
        return false;
    }
    // O_NONBLOCK keeps open() from waiting for a writer when the path names a FIFO; it is rejected below.
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd_ < 0) {
        setError(error, std::string("cannot open file: ") + std::strerror(errno));
        return false;
    }
    struct stat st {};
    if (::fstat(fd_, &st) != 0) {
        setError(error, std::string("cannot read file status: ") + std::strerror(errno));
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        setError(error, "is a directory, not an image file");
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        setError(error, "not a regular file");
        return false;
    }
    if (st.st_size <= 0) {
        setError(error, "file is empty");
        return false;
    }
    // Regular files ignore O_NONBLOCK for reads, but clear it anyway so reads behave normally everywhere.
    const int flags = ::fcntl(fd_, F_GETFL);
    if (flags >= 0) ::fcntl(fd_, F_SETFL, flags & ~O_NONBLOCK);
    size_ = uint64_t(st.st_size);
    return true;
}

size_t FileSource::readAt(uint64_t offset, void* out, size_t length) {
    size_t done = 0;
    while (done < length) {
        const ssize_t n = ::pread(fd_, static_cast<uint8_t*>(out) + done, length - done, off_t(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += size_t(n);
    }
    return done;
}

std::unique_ptr<uint8_t[]> FileSource::readAll(size_t& length, std::string* error) {
    length = 0;
    if (size_ > SIZE_MAX / 2) {
        setError(error, "file is too large");
        return nullptr;
    }
    std::unique_ptr<uint8_t[]> buffer;
    try {
        buffer = std::make_unique_for_overwrite<uint8_t[]>(size_t(size_));
    } catch (const std::bad_alloc&) {
        setError(error, "out of memory reading the file");
        return nullptr;
    }
    errno = 0;
    length = readAt(0, buffer.get(), size_t(size_));
    if (length == 0) {
        setError(error, errno ? std::string("cannot read file: ") + std::strerror(errno) : "file is empty");
        return nullptr;
    }
    // A file that shrank while being read is decoded from what arrived, like any truncated file.
    return buffer;
}

}  // namespace voimg::detail
