// kelt-run: reads a keyword deck, runs each step with the matching solver, prints
// one line a phase with its time, and writes deck.dat (the printed nodal values in
// the reference files' layout) and deck.vtu (for ParaView) beside the deck.
//
//   kelt-run deck.inp [--threads N] [--memory MB]
//
// Exit 0 on success; 1 with the message on a refused deck or a failed run; 2 on a
// bad command line.
#include <kelt/fem.h>
#include <kelt/io.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace kelt;

namespace {

using clock_type = std::chrono::steady_clock;
const clock_type::time_point start = clock_type::now();

double seconds() { return std::chrono::duration<double>(clock_type::now() - start).count(); }

void print_line(void*, const char* line) { std::printf("%8.3f s  %s\n", seconds(), line); }

bool parse_count(const char* text, unsigned& out)
{
    char* end = nullptr;
    const unsigned long v = std::strtoul(text, &end, 10);
    if (!*text || *end || v == 0 || v > 1u << 20) return false;
    out = unsigned(v);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    std::string deck_path;
    io::deck_run_options options;
    options.log = print_line;
    for (int a = 1; a < argc; ++a) {
        const std::string arg = argv[a];
        if ((arg == "--threads" || arg == "--memory") && a + 1 < argc) {
            if (!parse_count(argv[++a], arg == "--threads" ? options.threads : options.memory_MB)) {
                std::fprintf(stderr, "kelt-run: %s takes a positive whole number\n", arg.c_str());
                return 2;
            }
        } else if (deck_path.empty() && !arg.empty() && arg[0] != '-') {
            deck_path = arg;
        } else {
            deck_path.clear();
            break;
        }
    }
    if (deck_path.empty()) {
        std::fprintf(stderr, "usage: kelt-run deck.inp [--threads N] [--memory MB]\n");
        return 2;
    }
    const std::string stem = deck_path.size() > 4 && deck_path.compare(deck_path.size() - 4, 4, ".inp") == 0
                                 ? deck_path.substr(0, deck_path.size() - 4)
                                 : deck_path;

    std::printf("kelt-run (kelt FEM %s): %s\n", fem::version(), deck_path.c_str());
    io::deck_data deck;
    if (const io::file_status st = io::read_deck(deck_path, deck); !st) {
        std::fprintf(stderr, "kelt-run: %s\n", st.text.c_str());
        return 1;
    }
    unsigned elements = 0;
    for (const io::deck_block& b : deck.blocks) elements += b.cells.cols();
    std::printf("%8.3f s  read: %u nodes, %u elements, %zu step(s)\n", seconds(), deck.positions.cols(), elements,
                deck.steps.size());
    for (const std::string& note : deck.notes) std::printf("%8.3f s  %s\n", seconds(), note.c_str());

    std::vector<io::deck_step_result> results;
    if (const io::file_status st = io::run_deck(deck_path, deck, options, results); !st) {
        std::fprintf(stderr, "kelt-run: %s\n", st.text.c_str());
        return 1;
    }
    std::vector<std::string> skipped;
    if (const io::file_status st = io::write_deck_dat(stem + ".dat", deck, results, skipped); !st) {
        std::fprintf(stderr, "kelt-run: %s\n", st.text.c_str());
        return 1;
    }
    for (const std::string& s : skipped) std::printf("%8.3f s  not written yet: %s\n", seconds(), s.c_str());

    // The last step's field on every block.
    io::vtu_writer vtu(deck.positions);
    for (const io::deck_block& b : deck.blocks)
        if (vtu.add_cells(b.type, b.cells) != no_error) {
            std::fprintf(stderr, "kelt-run: %s.vtu: the %s cells cannot be written\n", stem.c_str(), b.deck_type.c_str());
            return 1;
        }
    if (!results.empty()) {
        const io::deck_step_result& r = results.back();
        std::vector<double> values(r.values.data(), r.values.data() + std::size_t(r.values.rows()) * r.values.cols());
        const bool heat = r.procedure == io::deck_procedure::heat_steady;
        if (vtu.add_point_field(heat ? "temperature" : "displacement", r.values.rows(), std::move(values)) != no_error) {
            std::fprintf(stderr, "kelt-run: %s.vtu: the field cannot be written\n", stem.c_str());
            return 1;
        }
    }
    if (const io::file_status st = vtu.write(stem + ".vtu"); !st) {
        std::fprintf(stderr, "kelt-run: %s\n", st.text.c_str());
        return 1;
    }
    std::printf("%8.3f s  wrote %s.dat and %s.vtu\n", seconds(), stem.c_str(), stem.c_str());
    return 0;
}
