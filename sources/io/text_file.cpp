#include "kelt/io/text_file.h"

#include "kelt/io/file_sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelt::io {

bool read_whole_file(const std::string& path, std::string& out)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    if (ok) {
        out.resize(std::size_t(st.st_size));
        std::size_t done = 0;
        while (ok && done < out.size()) {
            const ssize_t n = ::read(fd, out.data() + done, out.size() - done);
            if (n < 0 && errno == EINTR) continue;
            ok = n > 0;
            if (ok) done += std::size_t(n);
        }
    }
    ::close(fd);
    return ok;
}

file_status write_whole_file(const std::string& path, std::string_view text)
{
    file_status st;
    st.file = path;
    file_sink out(path);
    out.put(text.data(), text.size());
    if (!out.ok() || !out.commit()) {
        st.code = file_open_error;
        st.text = path + ": cannot be written";
    }
    return st;
}

file_status status_of(const std::string& path, std::string_view text, const read_fault& f)
{
    file_status st;
    st.code = f.code;
    st.file = path;
    if (f.binary) {
        st.text = path + ": byte " + std::to_string(f.pos) + ": " + f.why;
    } else {
        st.line = unsigned(text_cursor(text).line_of(f.pos));
        st.text = path + ":" + std::to_string(st.line) + ": " + f.why;
    }
    return st;
}

} // namespace kelt::io
