// The public table of degrees of freedom: which DOF of which node is free (true)
// or blocked (false). A DOF identifier is node * 9 + place.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {
class DOFs_mgr;
}

namespace kelt::fem {

class DOFs_mgr : public base_class {
public:
    // An empty table.
    DOFs_mgr();
    // `nodes` nodes, every DOF set to `state`.
    DOFs_mgr(unsigned nodes, bool state);
    // Copies share the table.
    DOFs_mgr(const DOFs_mgr&) = default;
    DOFs_mgr(DOFs_mgr&&) = default;
    DOFs_mgr& operator=(const DOFs_mgr&) = default;
    DOFs_mgr& operator=(DOFs_mgr&&) = default;
    ~DOFs_mgr() override = default;

    // 0xFFFFFFFF for a tag that is no field, and for an identifier that does not
    // fit below 0xFFFFFFFF (from node 477218588 on); the component is not checked.
    static unsigned ID(unsigned node, field_tag f, unsigned comp);
    static unsigned stride();
    static unsigned DOF_STRIDE();

    // Identifiers, added nodes included.
    unsigned size() const;
    // Regular nodes, added ones excluded.
    unsigned nbr_nodes() const;
    unsigned nbr_DOFs(bool state) const;

    void clear();
    void resize(unsigned nodes, bool state);

    [[nodiscard]] error_type set(unsigned ID, bool state);
    [[nodiscard]] error_type set(unsigned node, field_tag f, unsigned comp, bool state);
    // Every component of the field.
    [[nodiscard]] error_type set(unsigned node, field_tag f, bool state);
    // Two components of a vector field; nothing changes on failure.
    [[nodiscard]] error_type set(unsigned node, field_tag f, unsigned c1, unsigned c2, bool state);
    [[nodiscard]] error_type get(unsigned ID, bool& state) const;
    [[nodiscard]] error_type get(unsigned node, field_tag f, unsigned comp, bool& state) const;

    // Inverse of ID. With `map_added`, an added node reports the regular node it
    // stands for.
    void get_info(unsigned ID, unsigned& node, field_tag& f, unsigned& comp, bool map_added) const;
    // Appends, in increasing order, every identifier whose bit equals `state`.
    void copy_IDs(dense1D<unsigned, 8>& ids, bool state) const;
};

} // namespace kelt::fem
