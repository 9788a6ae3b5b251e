// A test context seen from the implementation layer. Models recorded on it are let
// go at the end, which breaks the ring between the context and its models.
#pragma once

#include "kelt/core/context.h"
#include "kelt/fem/context.h"

namespace kelt::test {

struct core_context {
    core_context() : ctx(static_cast<core::context_type*>(fem::core_of(host))) {}
    ~core_context() { ctx->numerical_models_mgr->clear(); }
    core_context(const core_context&) = delete;
    core_context& operator=(const core_context&) = delete;

    fem::context host;
    core::context_type* ctx;
};

} // namespace kelt::test
