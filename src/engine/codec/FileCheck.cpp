#include "engine/codec/FileCheck.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace vantelo_sounds::engine {
namespace {

Failure errnoFailure(int error) {
    const std::string text = std::strerror(error);
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return {OpenError::fileNotFound, text};
    case EISDIR:
        return {OpenError::notARegularFile, text};
    default:
        return {OpenError::notReadable, text};
    }
}

std::optional<Failure> kindFailure(const struct stat& st) {
    if (S_ISREG(st.st_mode)) {
        return std::nullopt;
    }
    const char* what = S_ISDIR(st.st_mode)    ? "Is a directory"
                       : S_ISFIFO(st.st_mode) ? "Is a FIFO"
                       : S_ISSOCK(st.st_mode) ? "Is a socket"
                       : S_ISCHR(st.st_mode)  ? "Is a character device"
                       : S_ISBLK(st.st_mode)  ? "Is a block device"
                                              : "Is not a regular file";
    return Failure{OpenError::notARegularFile, what};
}

FileStamp stampOf(const struct stat& st) {
    return {static_cast<std::uint64_t>(st.st_size),
            static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec};
}

} // namespace

Expected<FileStamp> checkRegularFile(const std::string& path) {
    if (path.empty()) {
        return Failure{OpenError::fileNotFound, "Empty path"};
    }
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        return errnoFailure(errno);
    }
    if (auto error = kindFailure(st)) {
        return *error;
    }
    return stampOf(st);
}

Expected<int> openRegularFile(const std::string& path) {
    auto checked = checkRegularFile(path);
    if (!checked) {
        return checked.failure();
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        return errnoFailure(errno);
    }
    struct stat st {};
    std::optional<Failure> error;
    if (::fstat(fd, &st) != 0) {
        error = errnoFailure(errno);
    } else {
        error = kindFailure(st);
    }
    if (!error) {
        const int flags = ::fcntl(fd, F_GETFL);
        if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0) {
            error = errnoFailure(errno);
        }
    }
    if (error) {
        ::close(fd);
        return *error;
    }
    return fd;
}

} // namespace vantelo_sounds::engine
