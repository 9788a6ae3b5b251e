// The table file reader on arbitrary text: the bytes are written to a file, read
// back as a table, and the table is evaluated. A broken file must give an empty
// table; a table that reads must satisfy its size and order invariant.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_input.h"
#include "kelt/fem.h"

namespace {

// One private file per process, removed at exit.
struct scratch_file {
    scratch_file()
    {
        const char* dir = std::getenv("TMPDIR");
        path = std::string(dir && *dir ? dir : "/tmp") + "/kelt_table_fuzz_XXXXXX";
        const int fd = ::mkstemp(path.data());
        if (fd < 0) std::abort();
        ::close(fd);
    }
    ~scratch_file() { std::remove(path.c_str()); }
    std::string path;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static scratch_file file;
    std::FILE* f = std::fopen(file.path.c_str(), "wb");
    if (!f) std::abort();
    if (size && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);

    const kelt::fem::twoD_table t(file.path.c_str());
    const unsigned rows = t.values.rows(), cols = t.values.cols();
    if (t.xs.size() != rows || t.ys.size() != cols) std::abort();
    for (unsigned k = 1; k < rows; ++k)
        if (!(t.xs[k - 1] <= t.xs[k])) std::abort();
    for (unsigned k = 1; k < cols; ++k)
        if (!(t.ys[k - 1] <= t.ys[k])) std::abort();
    // Evaluation below, inside and beyond the abscissas, and at the edges.
    volatile double sink = 0.0;
    const double probes[] = {-1e300, -1.0, 0.0, 0.5, 1.0, 1e300};
    for (double x : probes)
        for (double y : probes) sink = sink + t(x, y);
    if (rows && cols) sink = sink + t(t.xs[rows - 1], t.ys[cols - 1]) + t(t.xs[0], t.ys[0]);
    if ((rows == 0 || cols == 0) && t(0.0, 0.0) != 0.0) std::abort(); // an empty table is 0 everywhere
    return 0;
}
