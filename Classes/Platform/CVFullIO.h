#pragma once

// Reads and writes that go on until every byte is through (or the other end is gone), and the
// 32-bit little-endian numbers of the privileged runner's protocol. Plain C++ on purpose: the
// runner, which runs as root, includes this and nothing of Qt.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <sys/socket.h>
#include <unistd.h>

namespace CVFullIO {

inline bool readFully(int fd, void *buffer, std::size_t size)
{
    auto *p = static_cast<char *>(buffer);
    while (size > 0) {
        const ssize_t n = ::read(fd, p, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        size -= std::size_t(n);
    }
    return true;
}

// To a socket, the peer's end is reported as an error instead of raising SIGPIPE.
inline bool writeFully(int fd, const void *buffer, std::size_t size, bool socket = false)
{
    const auto *p = static_cast<const char *>(buffer);
    while (size > 0) {
        const std::size_t chunk = size < (std::size_t(1) << 30) ? size : (std::size_t(1) << 30);
        const ssize_t n = socket ? ::send(fd, p, chunk, MSG_NOSIGNAL) : ::write(fd, p, chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        size -= std::size_t(n);
    }
    return true;
}

inline void putNumber(unsigned char out[4], std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

inline bool readNumber(int fd, std::uint32_t &value)
{
    unsigned char bytes[4];
    if (!readFully(fd, bytes, 4))
        return false;
    value = std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16
        | std::uint32_t(bytes[3]) << 24;
    return true;
}

} // namespace CVFullIO
