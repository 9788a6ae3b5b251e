// The registry of numerical models: identifiers handed out, freed and reused, and
// the global element numbering, which must stay a partition of 0..total in model
// order whatever the sequence of recordings.
#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "kelt/core/context.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/fem/numerical_model_base.h"
#include "kelt/fem/numerical_models_mgr.h"

using namespace kelt;

namespace {

constexpr unsigned none = 0xFFFFFFFFu;

class sized_model : public core::numerical_model_base {
public:
    explicit sized_model(unsigned n, core::context_type* ctx = nullptr) : numerical_model_base(ctx), elements(n) {}
    unsigned nbr_elements() const override { return elements; }
    unsigned elements;
};

// Records a new model of n elements and returns its identifier.
unsigned add(core::numerical_models_mgr& mgr, unsigned n)
{
    Ptr<sized_model> m = new sized_model(n);
    EXPECT_EQ(mgr.record(m, m->ID, n), no_error);
    return m->ID;
}

using range = std::pair<unsigned, unsigned>;

TEST(numerical_models_mgr, an_element_falls_in_its_model_across_empty_ones)
{
    core::numerical_models_mgr mgr;
    const unsigned a = add(mgr, 2);
    add(mgr, 0);
    add(mgr, 0);
    const unsigned d = add(mgr, 3);
    EXPECT_EQ(mgr.local_FE_ID(0), range(a, 0));
    EXPECT_EQ(mgr.local_FE_ID(1), range(a, 1));
    EXPECT_EQ(mgr.local_FE_ID(2), range(d, 0)); // not one of the empty models before it
    EXPECT_EQ(mgr.local_FE_ID(4), range(d, 2));
    EXPECT_EQ(mgr.local_FE_ID(5), range(none, none)); // the total
    EXPECT_EQ(mgr.global_FE_ID(4), none);             // no such model
    EXPECT_EQ(mgr.global_FE_ID(none), none);          // and no wrap-around
    EXPECT_EQ(mgr.global_FE_ID_range(none), range(none, none));
}

// Random recordings, re-recordings and releases: the ranges must tile 0..total in
// model order with the last count given to each, and local_FE_ID must invert them.
class numbering_walk : public ::testing::TestWithParam<unsigned> {};

TEST_P(numbering_walk, ranges_tile_the_total_and_invert)
{
    std::mt19937 rng(GetParam());
    core::numerical_models_mgr mgr;
    std::vector<unsigned> counts; // expected count per identifier
    for (int step = 0; step < 60; ++step) {
        const unsigned n = rng() % 6;
        const unsigned what = rng() % 4;
        if (what == 0 && !counts.empty()) { // re-record
            const unsigned slot = rng() % counts.size();
            if (!mgr.exists(slot)) continue;
            unsigned ID = slot;
            ASSERT_EQ(mgr.record(mgr.get_NM(ID), ID, n), no_error);
            ASSERT_EQ(ID, slot); // a re-recorded model keeps its identifier
            counts[ID] = n;
        } else if (what == 1 && !counts.empty()) { // release
            const unsigned ID = rng() % counts.size();
            mgr.free_ID(ID);
            counts[ID] = 0;
        } else {
            const unsigned ID = add(mgr, n);
            if (ID >= counts.size()) counts.resize(ID + 1, 0);
            counts[ID] = n;
        }
    }
    unsigned next = 0;
    for (unsigned m = 0; m < counts.size(); ++m) {
        SCOPED_TRACE(m);
        EXPECT_EQ(mgr.global_FE_ID_range(m), range(next, next + counts[m]));
        for (unsigned k = 0; k < counts[m]; ++k) EXPECT_EQ(mgr.local_FE_ID(next + k), range(m, k));
        next += counts[m];
    }
    EXPECT_EQ(mgr.local_FE_ID(next), range(none, none));
}

INSTANTIATE_TEST_SUITE_P(seeds, numbering_walk, ::testing::Values(1u, 2u, 3u, 17u, 2024u));

TEST(numerical_models_mgr, identifiers_restart_after_clear_and_freed_ones_are_reused)
{
    core::numerical_models_mgr mgr;
    for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(add(mgr, 1), i);
    Ptr<core::numerical_model_base> second = mgr.get_NM(1);
    mgr.free_ID(1);
    EXPECT_EQ(second->ID, none); // the model no longer owns it
    EXPECT_FALSE(mgr.exists(1));
    EXPECT_EQ(mgr.global_FE_ID_range(1), range(1, 1));
    EXPECT_EQ(add(mgr, 4), 1u); // from the stack first
    EXPECT_EQ(add(mgr, 4), 3u); // then the counter
    EXPECT_EQ(mgr.nbr_models(), 4u);
    mgr.clear();
    EXPECT_EQ(mgr.nbr_models(), 0u);
    EXPECT_EQ(mgr.local_FE_ID(0), range(none, none));
    EXPECT_EQ(add(mgr, 2), 0u);
}

TEST(numerical_models_mgr, an_identifier_past_the_counter_moves_it)
{
    core::numerical_models_mgr mgr;
    Ptr<sized_model> m = new sized_model(2);
    unsigned ID = 4;
    ASSERT_EQ(mgr.record(m, ID, 2), no_error);
    EXPECT_EQ(mgr.global_FE_ID_range(4), range(0, 2)); // the models before it are empty
    EXPECT_EQ(mgr.global_FE_ID_range(2), range(0, 0));
    EXPECT_EQ(add(mgr, 1), 5u);
}

TEST(numerical_models_mgr, handles_see_the_context_registry)
{
    fem::context ctx;
    auto* c = static_cast<core::context_type*>(fem::core_of(ctx));
    Ptr<sized_model> m = new sized_model(6, c);
    ASSERT_EQ(m->record(), no_error);
    fem::numerical_models_mgr mgr = ctx.the_NM_mgr();

    fem::numerical_model_base h;
    EXPECT_EQ(h.get_ID(), none); // empty handle
    EXPECT_EQ(mgr.get_NM(m->ID, h), no_error);
    EXPECT_EQ(mgr.get_ID(h), m->ID);
    EXPECT_EQ(fem::core_of(h), m.get());
    EXPECT_EQ(mgr.global_FE_ID_range(m->ID), range(0, 6));
    EXPECT_EQ(mgr.local_FE_ID(5), range(m->ID, 5));

    EXPECT_EQ(mgr.get_NM(m->ID + 1, h), element_type_error); // past the end: the handle is emptied
    EXPECT_FALSE(h.attached());
    m = nullptr;
    mgr.clear(); // the registry held the last reference, and the model the context
    EXPECT_EQ(mgr.get_NM(0, h), element_type_error);
}

} // namespace

namespace {
struct counted_model : core::numerical_model_base {
    counted_model(core::context_type* ctx, int& alive) : numerical_model_base(ctx), alive(alive) { ++alive; }
    ~counted_model() override { --alive; }
    int& alive;
};
} // namespace

TEST(numerical_models_mgr, a_context_and_its_models_go_with_the_last_handle)
{
    int alive = 0;
    Ptr<counted_model> kept;
    {
        fem::context ctx;
        auto* c = static_cast<core::context_type*>(fem::core_of(ctx));
        for (int i = 0; i < 3; ++i) {
            Ptr<counted_model> m = new counted_model(c, alive);
            ASSERT_EQ(m->record(), no_error);
            if (i == 1) kept = m;
        }
        EXPECT_EQ(alive, 3);
        EXPECT_EQ(kept->context, c);
    }
    // The context is gone without a clear(); the model still held has lost its link.
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(kept->context, nullptr);
    EXPECT_EQ(kept->record(), invalid_data_error);
    kept = nullptr;
    EXPECT_EQ(alive, 0);
}
