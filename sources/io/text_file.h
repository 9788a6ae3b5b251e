// The reading of a whole file held in memory, text with binary stretches: numbers,
// lines, sections, and the one way a reader stops on a fault (the file, the line
// or byte, the reason) that every reader of this layer shares.
#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "kelt/io/file_status.h"

namespace kelt::io {

// What a reader throws to stop; read_text_file turns it into a file_status.
struct read_fault : std::exception {
    error_type code;
    std::size_t pos;
    bool binary;
    std::string why;
    read_fault(error_type c, std::size_t p, bool b, std::string w) : code(c), pos(p), binary(b), why(std::move(w)) {}
};

class text_cursor {
public:
    explicit text_cursor(std::string_view text) : s_(text) {}

    [[noreturn]] void fail(error_type code, const std::string& why) const { throw read_fault(code, p_, binary_, why); }
    // Said where the file ends.
    [[noreturn]] void truncated() const
    {
        throw read_fault(invalid_data_error, s_.size(), binary_, "the file ends early (truncated?)");
    }

    void set_binary(bool b) noexcept { binary_ = b; }
    // The whole text, for a reader that goes a line at a time.
    std::string_view text() const noexcept { return s_; }
    bool at_end() noexcept
    {
        skip_space();
        return p_ >= s_.size();
    }

    // Text: a number after blanks and new-lines; a fault names what was expected.
    template <class T>
    T number(const char* what)
    {
        skip_space();
        if (p_ >= s_.size()) truncated();
        T v{};
        const char* first = s_.data() + p_;
        const char* last = s_.data() + s_.size();
        const auto [end, ec] = std::from_chars(first, last, v);
        if (ec != std::errc() || (end < last && !is_space(*end)))
            fail(invalid_data_error, std::string("expected ") + what + ", read \"" + std::string(token()) + "\"");
        if constexpr (std::is_floating_point_v<T>)
            if (!std::isfinite(v)) fail(invalid_data_error, std::string(what) + " is not a finite number");
        p_ = std::size_t(end - s_.data());
        return v;
    }
    // Text between double quotes.
    std::string quoted()
    {
        skip_space();
        if (p_ >= s_.size()) truncated();
        if (s_[p_] != '"') fail(invalid_data_error, "expected a name in double quotes");
        const std::size_t close = s_.find('"', p_ + 1);
        if (close == std::string_view::npos) truncated();
        std::string name(s_.substr(p_ + 1, close - p_ - 1));
        p_ = close + 1;
        return name;
    }
    // The rest of the line: blanks only unless `rest_allowed`.
    void end_line(bool rest_allowed = false)
    {
        while (p_ < s_.size() && s_[p_] != '\n') {
            if (!rest_allowed && !is_space(s_[p_])) fail(invalid_data_error, "unexpected \"" + std::string(token()) + "\"");
            ++p_;
        }
        if (p_ < s_.size()) ++p_;
    }

    // Binary: values as the machine stores them.
    template <class T>
    T raw()
    {
        T v;
        raw_array(&v, 1);
        return v;
    }
    template <class T>
    void raw_array(T* out, std::size_t n)
    {
        const std::size_t bytes = n * sizeof(T);
        if (bytes > s_.size() - p_) truncated();
        std::memcpy(out, s_.data() + p_, bytes);
        p_ += bytes;
    }
    // A count read from the file must fit in what is left, at `bytes` an item at
    // least: a damaged header never makes a reader allocate beyond the file.
    void check_room(std::size_t count, std::size_t bytes) const
    {
        if (count > (s_.size() - p_) / bytes)
            fail(invalid_data_error, "a count of " + std::to_string(count) + " is more than the file holds");
    }

    // Sections "$Name" ... "$EndName": false at the end of the file.
    bool next_section()
    {
        skip_space();
        if (p_ >= s_.size()) return false;
        if (s_[p_] != '$') fail(invalid_data_error, "expected a section, read \"" + std::string(token()) + "\"");
        std::size_t e = p_ + 1;
        while (e < s_.size() && !is_space(s_[e])) ++e;
        section_ = s_.substr(p_ + 1, e - p_ - 1);
        p_ = e;
        end_line();
        return true;
    }
    std::string_view section() const noexcept { return section_; }
    void end_section(std::string_view name)
    {
        skip_space();
        const std::string end = "$End" + std::string(name);
        if (p_ >= s_.size()) truncated();
        if (s_.compare(p_, end.size(), end) != 0)
            fail(invalid_data_error, "expected " + end + ", read \"" + std::string(token()) + "\"");
        p_ += end.size();
        end_line();
    }
    void skip_section(std::string_view name)
    {
        const std::string end = "\n$End" + std::string(name);
        const std::size_t at = s_.find(end, p_ ? p_ - 1 : 0);
        if (at == std::string_view::npos) truncated();
        p_ = at + 1;
        end_section(name);
    }

    // 1-based line of a position (text only).
    std::size_t line_of(std::size_t pos) const noexcept
    {
        std::size_t line = 1;
        for (std::size_t i = 0; i < pos && i < s_.size(); ++i) line += s_[i] == '\n';
        return line;
    }

private:
    std::string_view s_;
    std::size_t p_ = 0;
    bool binary_ = false;
    std::string_view section_;

    static bool is_space(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    void skip_space() noexcept
    {
        while (p_ < s_.size() && is_space(s_[p_])) ++p_;
    }
    // The word at the position, for messages (at most 32 characters).
    std::string_view token() const noexcept
    {
        std::size_t b = p_;
        while (b < s_.size() && is_space(s_[b])) ++b;
        std::size_t e = b;
        while (e < s_.size() && e - b < 32 && !is_space(s_[e])) ++e;
        return b >= s_.size() ? std::string_view("end of file") : s_.substr(b, e - b);
    }
};

// Text read a line at a time, for formats whose records are lines: the line without
// its end, its 1-based number, and faults placed at its start.
class line_cursor {
public:
    explicit line_cursor(std::string_view text) : s_(text) {}

    // False at the end of the text.
    bool next() noexcept
    {
        if (back_) {
            back_ = false;
            return true;
        }
        if (next_ >= s_.size()) return false;
        start_ = next_;
        std::size_t e = s_.find('\n', start_);
        next_ = e == std::string_view::npos ? s_.size() : e + 1;
        if (e == std::string_view::npos) e = s_.size();
        if (e > start_ && s_[e - 1] == '\r') --e;
        line_ = s_.substr(start_, e - start_);
        ++number_;
        return true;
    }
    // The line just read comes again from the next `next`.
    void back() noexcept { back_ = true; }
    std::string_view line() const noexcept { return line_; }
    std::size_t number() const noexcept { return number_; }

    [[noreturn]] void fail(error_type code, const std::string& why) const { throw read_fault(code, start_, false, why); }
    [[noreturn]] void truncated() const
    {
        throw read_fault(invalid_data_error, s_.size(), false, "the file ends early (truncated?)");
    }

private:
    std::string_view s_;
    std::string_view line_;
    std::size_t start_ = 0, next_ = 0, number_ = 0;
    bool back_ = false;
};

// Reads the file into memory and runs `body` on a cursor over it; a fault thrown by
// the body, a failed read or an allocation that fails becomes the status.
template <class Body>
file_status read_text_file(const std::string& path, Body&& body);

// The file's bytes; false when it cannot be opened or read.
bool read_whole_file(const std::string& path, std::string& out);

// Writes `text` to the file through a temporary one renamed at the end.
file_status write_whole_file(const std::string& path, std::string_view text);

// The status of a fault at a position of `text`.
file_status status_of(const std::string& path, std::string_view text, const read_fault& f);

template <class Body>
file_status read_text_file(const std::string& path, Body&& body)
{
    file_status st;
    st.file = path;
    std::string text;
    try {
        if (!read_whole_file(path, text)) {
            st.code = file_open_error;
            st.text = path + ": cannot be opened or read";
            return st;
        }
        text_cursor c(text);
        body(c);
    } catch (const read_fault& f) {
        return status_of(path, text, f);
    } catch (const std::bad_alloc&) {
        st.code = memory_error;
        st.text = path + ": not enough memory to read it";
    }
    return st;
}

} // namespace kelt::io
