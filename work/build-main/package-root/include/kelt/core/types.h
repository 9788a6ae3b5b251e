// The enumerations that every layer shares. Their numbers are part of the public
// interface.
#pragma once

#include <cstdint>

namespace kelt {

enum error_type : std::int32_t {
    no_error = 0,
    interrupted_warning = -10,
    pivot_warning = -11,
    convergence_warning = -12,
    missing_modes_warning = -13,
    invalid_data_error = -101,
    element_index_error = -102,
    element_type_error = -104,
    connectivity_size_error = -105,
    element_geometry_error = -106,
    pivot_error = -107,
    inf_nan_error = -108,
    non_convergence_error = -109,
    file_open_error = -150,
    temp_file_error = -151,
    insufficient_memory_error = -154,
    memory_error = -199,
    internal_error = -200,
};

inline constexpr bool is_error(error_type e) noexcept { return e <= invalid_data_error; }
inline constexpr bool is_warning(error_type e) noexcept { return e < no_error && e > invalid_data_error; }

enum field_tag : std::uint32_t {
    displacement_tag = 8,
    rotation_tag = 24,
    temperature_tag = 40,
};

// Numeric order is fixed: tables and model codes are indexed by it.
enum element_type : std::uint32_t {
    element_none = 0,
    element_node = 1,
    element_edge = 2,
    element_edge2 = 3,
    element_edge3 = 4,
    element_face = 5,
    element_faceT3 = 6,
    element_faceQ4 = 7,
    element_faceT6 = 8,
    element_faceQ8 = 9,
    element_faceQ9 = 10,
    element_solid = 11,
    element_tetra4 = 12,
    element_tetra10 = 13,
    element_pyramid5 = 14,
    element_pyramid13 = 15,
    element_pyramid14 = 16,
    element_wedge6 = 17,
    element_wedge15 = 18,
    element_wedge18 = 19,
    element_hexa8 = 20,
    element_hexa20 = 21,
    element_hexa27 = 22,
};

inline constexpr unsigned nbr_element_types = 23;

} // namespace kelt
