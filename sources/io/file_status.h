// What a reader or writer says of a file: its code, where it stopped and why.
#pragma once

#include <string>

#include "kelt/core/types.h"

namespace kelt::io {

// `code` is no_error on success; else file_open_error (the file cannot be opened,
// read or written), invalid_data_error (malformed content), element_type_error (an
// element the library has no shape for) or memory_error. `text` says
// "file:line: reason" ("file: reason" when no line applies) and is what a host shows.
struct file_status {
    error_type code = no_error;
    std::string file;
    unsigned line = 0; // 1-based; 0 when the fault is not on a line (binary data, a write)
    std::string text;

    explicit operator bool() const noexcept { return code == no_error; }
};

} // namespace kelt::io
