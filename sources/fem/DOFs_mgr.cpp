#include "kelt/fem/DOFs_mgr.h"

#include "kelt/core/DOFs_mgr.h"

namespace kelt::fem {

using table = core::DOFs_mgr;

DOFs_mgr::DOFs_mgr() { set_w(new table); }

DOFs_mgr::DOFs_mgr(unsigned nodes, bool state) { set_w(new table(nodes, state)); }

unsigned DOFs_mgr::ID(unsigned node, field_tag f, unsigned comp) { return table::ID(node, f, comp); }
unsigned DOFs_mgr::stride() { return table::stride(); }
unsigned DOFs_mgr::DOF_STRIDE() { return table::DOF_STRIDE(); }

// Plain reads of the bit count: no reference taken.
unsigned DOFs_mgr::size() const { return core<table>()->size(); }

unsigned DOFs_mgr::nbr_nodes() const { return hold<table>()->nbr_nodes(); }
unsigned DOFs_mgr::nbr_DOFs(bool state) const { return hold<table>()->nbr_DOFs(state); }

void DOFs_mgr::clear() { hold<table>()->clear(); }
void DOFs_mgr::resize(unsigned nodes, bool state) { hold<table>()->resize(nodes, state); }

error_type DOFs_mgr::set(unsigned ID, bool state) { return hold<table>()->set(ID, state); }

error_type DOFs_mgr::set(unsigned node, field_tag f, unsigned comp, bool state)
{
    return hold<table>()->set(node, f, comp, state);
}

error_type DOFs_mgr::set(unsigned node, field_tag f, bool state) { return hold<table>()->set(node, f, state); }

error_type DOFs_mgr::set(unsigned node, field_tag f, unsigned c1, unsigned c2, bool state)
{
    return hold<table>()->set(node, f, c1, c2, state);
}

error_type DOFs_mgr::get(unsigned ID, bool& state) const { return hold<table>()->get(ID, state); }

error_type DOFs_mgr::get(unsigned node, field_tag f, unsigned comp, bool& state) const
{
    return hold<table>()->get(node, f, comp, state);
}

void DOFs_mgr::get_info(unsigned ID, unsigned& node, field_tag& f, unsigned& comp, bool map_added) const
{
    hold<table>()->get_info(ID, node, f, comp, map_added);
}

void DOFs_mgr::copy_IDs(dense1D<unsigned, 8>& ids, bool state) const { hold<table>()->copy_IDs(ids, state); }

} // namespace kelt::fem
