// The one way this layer writes a file: through a buffer of a few MB into a
// temporary file beside it, renamed at the end, so that a failed write leaves no
// partial file and an older file as it was.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

namespace kelt::io {

// `commit` flushes, closes and renames; without it the temporary file goes.
class file_sink {
public:
    explicit file_sink(const std::string& path) : path_(path), temp_(path + ".part")
    {
        fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        ok_ = fd_ >= 0;
        if (ok_) buffer_.reserve(buffer_size);
    }
    ~file_sink()
    {
        if (fd_ >= 0) ::close(fd_);
        if (!committed_) ::unlink(temp_.c_str());
    }
    file_sink(const file_sink&) = delete;
    file_sink& operator=(const file_sink&) = delete;

    void put(const void* data, std::size_t bytes)
    {
        const char* p = static_cast<const char*>(data);
        if (buffer_.size() + bytes > buffer_size) flush();
        if (bytes >= buffer_size) return drain(p, bytes);
        buffer_.insert(buffer_.end(), p, p + bytes);
    }
    void put(const std::string& s) { put(s.data(), s.size()); }
    bool commit()
    {
        flush();
        if (::close(fd_) != 0) ok_ = false;
        fd_ = -1;
        if (ok_) ok_ = ::rename(temp_.c_str(), path_.c_str()) == 0;
        committed_ = ok_;
        return ok_;
    }
    bool ok() const noexcept { return ok_; }

private:
    static constexpr std::size_t buffer_size = std::size_t(4) << 20;
    std::string path_, temp_;
    int fd_ = -1;
    bool ok_ = false, committed_ = false;
    std::vector<char> buffer_;

    void flush()
    {
        drain(buffer_.data(), buffer_.size());
        buffer_.clear();
    }
    void drain(const char* p, std::size_t bytes)
    {
        while (ok_ && bytes) {
            const ssize_t n = ::write(fd_, p, bytes);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                ok_ = false;
                break;
            }
            p += n, bytes -= std::size_t(n);
        }
    }
};

} // namespace kelt::io
