// SPDX-License-Identifier: MIT
// Atomic replacement of files through a temporary file and rename().
#include "atomic_file_p.h"

#include "codec_p.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace voimg::detail {

AtomicFile::~AtomicFile() { discard(); }

void AtomicFile::discard() {
    if (stream_ != nullptr) std::fclose(stream_);
    stream_ = nullptr;
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
    temporary_.clear();
}

bool AtomicFile::open(const std::string& destination, std::string* error) {
    discard();
    const size_t slash = destination.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string(".") : destination.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? destination : destination.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        setError(error, "destination names a directory");
        return false;
    }
    struct stat st {};
    if (::stat(destination.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        setError(error, "destination is a directory");
        return false;
    }
    std::string pattern = (slash == std::string::npos ? std::string() : folder) + "." + name + ".XXXXXX";
    const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd < 0) {
        setError(error, std::string("cannot create a file in the destination folder: ") + std::strerror(errno));
        return false;
    }
    // mkstemp creates the file private (0600); thumbnails and exports are ordinary readable files.
    ::fchmod(fd, 0644);
    temporary_ = pattern;
    stream_ = ::fdopen(fd, "wb");
    if (stream_ == nullptr) {
        setError(error, std::string("cannot open the temporary file: ") + std::strerror(errno));
        ::close(fd);
        discard();
        return false;
    }
    // A thumbnail in one or a few writes rather than one per 4 KiB.
    constexpr size_t kBufferSize = 64 * 1024;
    buffer_ = std::make_unique_for_overwrite<char[]>(kBufferSize);
    std::setvbuf(stream_, buffer_.get(), _IOFBF, kBufferSize);
    destination_ = destination;
    return true;
}

bool AtomicFile::commit(std::string* error) {
    if (stream_ == nullptr) {
        setError(error, "no file open");
        return false;
    }
    const bool flushed = std::fflush(stream_) == 0 && !std::ferror(stream_);
    const int flushErrno = errno;
    const bool closed = std::fclose(stream_) == 0;
    stream_ = nullptr;
    if (!flushed || !closed) {
        setError(error, std::string("cannot write the file: ") + std::strerror(flushed ? errno : flushErrno));
        discard();
        return false;
    }
    if (::rename(temporary_.c_str(), destination_.c_str()) != 0) {
        setError(error, std::string("cannot move the file into place: ") + std::strerror(errno));
        discard();
        return false;
    }
    temporary_.clear();
    return true;
}

}  // namespace voimg::detail
