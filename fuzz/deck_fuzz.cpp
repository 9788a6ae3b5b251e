// The keyword deck reader on arbitrary text: the bytes are written to a file and
// read as a deck. A refused deck leaves the output as it was and says where; a deck
// that reads refers only to nodes, elements and sets it has.
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_input.h"
#include "kelt/io.h"

namespace {

// One private file per process, removed at exit.
struct scratch_file {
    scratch_file()
    {
        const char* dir = std::getenv("TMPDIR");
        path = std::string(dir && *dir ? dir : "/tmp") + "/kelt_deck_fuzz_XXXXXX";
        const int fd = ::mkstemp(path.data());
        if (fd < 0) std::abort();
        ::close(fd);
    }
    ~scratch_file() { std::remove(path.c_str()); }
    std::string path;
};

void check(bool ok)
{
    if (!ok) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static scratch_file file;
    std::FILE* f = std::fopen(file.path.c_str(), "wb");
    if (!f) std::abort();
    if (size && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);

    kelt::io::deck_data d;
    d.notes.push_back("untouched");
    const kelt::io::file_status st = kelt::io::read_deck(file.path, d);
    if (!st) {
        check(!st.text.empty() && d.notes.size() == 1 && d.blocks.empty() && d.positions.cols() == 0);
        return 0;
    }
    const unsigned nodes = d.positions.cols();
    check(d.node_tags.size() == nodes);
    for (unsigned n = 0; n < nodes; ++n)
        for (unsigned k = 0; k < 3; ++k) check(std::isfinite(d.positions(k, n)));
    std::size_t elements = 0;
    for (const kelt::io::deck_block& b : d.blocks) {
        check(b.element_tags.size() == b.cells.cols());
        elements += b.cells.cols();
        for (unsigned c = 0; c < b.cells.cols(); ++c)
            for (unsigned a = 0; a < b.cells.rows(); ++a) check(b.cells(a, c) < nodes);
    }
    check(d.elements.size() == elements);
    for (const kelt::io::deck_set& s : d.node_sets)
        for (unsigned n : s.items) check(n < nodes);
    for (const kelt::io::deck_set& s : d.element_sets)
        for (unsigned e : s.items) check(e < elements);
    for (const kelt::io::deck_step& s : d.steps) {
        for (const auto& v : s.boundaries) check(v.node < nodes);
        for (const auto& v : s.forces) check(v.node < nodes);
        for (const auto& p : s.pressures)
            for (unsigned a = 0; a < 9; ++a) check(p.nodes[a] < nodes);
    }
    return 0;
}
