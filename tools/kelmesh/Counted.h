// kelmesh: a count with its noun in the right number ("1 facet", "2 facets").
#pragma once

#include <cstdint>
#include <string>

namespace Kelmesh
{
inline std::string Counted(uint64_t n, const char* one, const char* many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}
} // namespace Kelmesh
