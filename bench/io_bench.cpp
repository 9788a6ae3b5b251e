// The file layer's speed: a Gmsh 4.1 binary mesh of about a million nodes (a block
// of hexa8, written here in the format gmsh writes) read by read_gmsh, in nodes a
// second; the .vtu of its displacements and stresses written by vtu_writer, in
// MB/s beside what dd writes to the same folder in the same run.
//
//   io_bench [cells along x (default 160: 161 x 81 x 81 = 1.06e6 nodes)] [folder]
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_support.h"
#include "kelt/io.h"

using namespace kelt;

namespace {

// A structured block nx x ny x nz of 8-node hexahedra in one entity and one group.
void write_block_msh(const std::string& path, unsigned nx, unsigned ny, unsigned nz)
{
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::exit(1);
    const auto put = [&](const void* p, std::size_t n) { std::fwrite(p, 1, n, f); };
    std::fputs("$MeshFormat\n4.1 1 8\n", f);
    const int one = 1;
    put(&one, 4);
    std::fputs("\n$EndMeshFormat\n$PhysicalNames\n1\n3 1 \"block\"\n$EndPhysicalNames\n$Entities\n", f);
    const std::size_t counts[4] = {0, 0, 0, 1};
    put(counts, sizeof counts);
    const int tag = 1;
    const double box[6] = {0, 0, 0, double(nx), double(ny), double(nz)};
    const std::size_t groups = 1, bounds = 0;
    put(&tag, 4), put(box, sizeof box), put(&groups, 8), put(&tag, 4), put(&bounds, 8);
    std::fputs("\n$EndEntities\n$Nodes\n", f);
    const std::size_t n = std::size_t(nx + 1) * (ny + 1) * (nz + 1), e = std::size_t(nx) * ny * nz;
    const std::size_t head[4] = {1, n, 1, n};
    put(head, sizeof head);
    const int block_head[3] = {3, 1, 0};
    put(block_head, sizeof block_head), put(&n, 8);
    std::vector<std::size_t> tags(n);
    for (std::size_t i = 0; i < n; ++i) tags[i] = i + 1;
    put(tags.data(), 8 * n);
    std::vector<double> xyz;
    xyz.reserve(3 * n);
    for (unsigned k = 0; k <= nz; ++k)
        for (unsigned j = 0; j <= ny; ++j)
            for (unsigned i = 0; i <= nx; ++i) xyz.insert(xyz.end(), {double(i), double(j), double(k)});
    put(xyz.data(), 8 * xyz.size());
    std::fputs("\n$EndNodes\n$Elements\n", f);
    const std::size_t ehead[4] = {1, e, 1, e};
    put(ehead, sizeof ehead);
    const int eblock[3] = {3, 1, 5};
    put(eblock, sizeof eblock), put(&e, 8);
    const auto id = [&](unsigned i, unsigned j, unsigned k) {
        return std::size_t(1) + i + std::size_t(nx + 1) * (j + std::size_t(ny + 1) * k);
    };
    std::vector<std::size_t> rec;
    rec.reserve(9 * e);
    std::size_t t = 1;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i)
                rec.insert(rec.end(), {t++, id(i, j, k), id(i + 1, j, k), id(i + 1, j + 1, k), id(i, j + 1, k),
                                       id(i, j, k + 1), id(i + 1, j, k + 1), id(i + 1, j + 1, k + 1), id(i, j + 1, k + 1)});
    put(rec.data(), 8 * rec.size());
    std::fputs("\n$EndElements\n", f);
    std::fclose(f);
}

// dd's figure for a file of `mb` MB in the folder, from its last line.
double dd_MB_per_s(const std::string& folder, unsigned mb)
{
    const std::string file = folder + "/io_bench.dd", out = folder + "/io_bench.dd.log";
    const std::string cmd = "dd if=/dev/zero of=" + file + " bs=4M count=" + std::to_string(mb / 4) + " 2> " + out;
    const auto t0 = bench::clock_type::now();
    const int rc = std::system(cmd.c_str());
    const double s = bench::seconds_since(t0);
    std::filesystem::remove(file);
    std::filesystem::remove(out);
    return rc == 0 ? mb / s : 0.0;
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned nx = argc > 1 ? unsigned(std::atoi(argv[1])) : 160u, ny = nx / 2, nz = nx / 2;
    const std::string folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path().string();
    const std::string msh = folder + "/io_bench.msh", vtu = folder + "/io_bench.vtu";
    write_block_msh(msh, nx, ny, nz);
    const double msh_MB = double(std::filesystem::file_size(msh)) / 1e6;

    io::mesh_data m;
    double best = 1e30;
    for (int rep = 0; rep < 3; ++rep) {
        const auto t0 = bench::clock_type::now();
        const io::file_status st = io::read_gmsh(msh, m);
        best = std::min(best, bench::seconds_since(t0));
        if (!st) {
            std::printf("%s\n", st.text.c_str());
            return 1;
        }
    }
    const unsigned n = m.positions.cols();
    std::printf("read_gmsh, 4.1 binary: %u nodes, %u hexa8, %.0f MB in %.3f s: %.2e nodes/s (target >= 2e6)\n", n,
                m.blocks.at(0).cells.cols(), msh_MB, best, n / best);

    io::vtu_writer w(m.positions);
    if (w.add_cells(element_hexa8, m.blocks[0].cells) != no_error) return 1;
    std::vector<double> u(3 * std::size_t(n)), s(6 * std::size_t(n));
    for (std::size_t i = 0; i < u.size(); ++i) u[i] = 1e-3 * double(i % 977);
    for (std::size_t i = 0; i < s.size(); ++i) s[i] = double(i % 1013);
    if (w.add_point_field("displacement", 3, std::move(u)) != no_error ||
        w.add_point_field("stress", 6, std::move(s)) != no_error)
        return 1;
    best = 1e30;
    for (int rep = 0; rep < 3; ++rep) {
        const auto t0 = bench::clock_type::now();
        if (!w.write(vtu)) return 1;
        best = std::min(best, bench::seconds_since(t0));
    }
    const double vtu_MB = double(std::filesystem::file_size(vtu)) / 1e6;
    const double dd = dd_MB_per_s(folder, unsigned(vtu_MB) + 4);
    std::printf("vtu_writer: %.0f MB in %.3f s: %.0f MB/s; dd to the same folder: %.0f MB/s (target >= half: %.2f)\n",
                vtu_MB, best, vtu_MB / best, dd, vtu_MB / best / dd);
    std::filesystem::remove(msh);
    std::filesystem::remove(vtu);
    return 0;
}
