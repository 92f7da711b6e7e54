// kelmesh: why an STL file was refused, in words, from the step of the read that failed, that
// reader's own code, and the file's first bytes and size. Header-only so that every case can be
// tested without files.
#pragma once

#include "Counted.h"

#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>

#include <cstdint>
#include <string>

namespace Kelmesh
{
namespace Detail
{
// "solid" in any letter case at the very start: detection then looks for facets in the text.
inline bool BeginsWithSolid(const std::string& head)
{
    static const char solid[] = "solid";
    if (head.size() < 5)
        return false;
    for (size_t i = 0; i < 5; ++i)
        if ((head[i] | 0x20) != solid[i])
            return false;
    return true;
}

// Printable ASCII and line breaks only: a text, not binary data.
inline bool IsPlainText(const std::string& head)
{
    for (const char c : head)
    {
        const unsigned char u = static_cast<unsigned char>(c);
        if ((u < 0x20 && u != '\t' && u != '\n' && u != '\r') || u > 0x7E)
            return false;
    }
    return !head.empty();
}

// What the binary reader's code means for a file of size bytes whose first count is declared.
inline std::string BinaryReason(int code, uint64_t size, uint64_t declared)
{
    using Binary = KelSDK::Triangles::IO::MStlFileReaderBinary;
    const uint64_t needed = 84 + 50 * declared;
    if (code == Binary::HeaderTruncated && size == 0)
        return "an empty file";
    if (code == Binary::HeaderTruncated)
        return Counted(size, "byte", "bytes") +
               ", too short for the header and facet count of a binary STL (84 bytes)";
    if (code == Binary::StreamTooShort)
        return "a binary STL shorter than its facet count (" +
               Counted(declared, "facet needs ", "facets need ") + std::to_string(needed) +
               " bytes, the file has " + std::to_string(size) + ")";
    // Trailing bytes are reported as a mismatch, or (read as a further block of facets) as a
    // block that ends early.
    if ((code == Binary::SizeMismatch || code == Binary::StreamError) && size > needed)
        return "a binary STL with " + Counted(size - needed, "byte", "bytes") + " after its " +
               Counted(declared, "facet", "facets");
    return "a binary STL whose facets could not be read";
}
} // namespace Detail

// head: the first bytes of the file (up to 300), size: its size in bytes.
inline std::string DescribeStlFailure(KelSDK::Triangles::IO::MStlFileReader::EFailure failure, int code,
                                      const std::string& head, uint64_t size)
{
    using Failure = KelSDK::Triangles::IO::MStlFileReader::EFailure;
    switch (failure)
    {
    case Failure::None:
        return "no failure";
    case Failure::NoInput:
        return "the file cannot be read";
    case Failure::AsciiReader:
        return "an ASCII text with facets but without \"solid\"";
    case Failure::MeshBuilding:
        return "the facets could not be made into a mesh";
    case Failure::BinaryReader:
        break;
    }
    uint64_t declared = 0;
    for (size_t i = 0; i < 4 && 80 + i < head.size(); ++i)
        declared |= uint64_t{static_cast<unsigned char>(head[80 + i])} << (8 * i);
    const std::string binary = Detail::BinaryReason(code, size, declared);
    // Taken for binary because no facet phrase ("facet normal", "outer loop") was found.
    if (Detail::BeginsWithSolid(head))
        return "begins with \"solid\" but holds no facet in its first 300 bytes, so it was read as binary: " +
               binary;
    if (Detail::IsPlainText(head))
        return "not an STL file: a text that neither begins with \"solid\" nor holds facets";
    return binary;
}
} // namespace Kelmesh
