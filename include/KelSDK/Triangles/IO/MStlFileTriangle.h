// One STL facet: normal, three corners and the attribute word, with its binary and ASCII encodings.
#pragma once

#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/IO/Export.h>

#include <cstdint>
#include <cstdio>
#include <iosfwd>
#include <string>

namespace KelSDK::FileIO
{
class MFile;
}

namespace KelSDK::Triangles::IO
{
// A facet as stored in an STL file. Corners in file order (the order gives the orientation);
// the normal is kept as read, never recomputed; the attribute word is kept verbatim.
class KELSDK_TRIANGLES_IO_EXPORT MStlFileTriangle
{
public:
    using Point = KelSDK::Math::point<double, 3>;

    // Size in bytes of one binary facet: twelve float32 and one uint16.
    static constexpr std::size_t BINARY_SIZE = 50;

    // All twelve coordinates 0.0, attribute 0.
    MStlFileTriangle() = default;

    // Corner i (0, 1, 2) in file order.
    const Point& GetVertex(std::size_t i) const { return vertices_[i]; }
    void SetVertex(std::size_t i, const Point& p) { vertices_[i] = p; }
    // The normal as stored in the file.
    const Point& GetNormal() const { return normal_; }
    void SetNormal(const Point& n) { normal_ = n; }
    // The 16-bit attribute word of the binary facet (colour convention of the coloured STL).
    uint16_t GetAttribute() const { return attribute_; }
    void SetAttribute(uint16_t a) { attribute_ = a; }

    // True when all nine corner coordinates are finite (the normal and attribute are not tested).
    bool IsValid() const;
    // The unit normal of the corners, (v2 - v1) x (v3 - v1) normalised; zero when degenerate.
    Point GetGeometricNormal() const;
    // The stored normal scaled to unit length; zero when it has no length.
    Point GetNormalizedNormal() const;

    // binary: ReadBinary(stream); otherwise ReadAscii(stream, ""). Returns the validity test.
    bool Read(std::istream& stream, bool binary);
    // Reads one 50-byte binary facet; does not look at the stream state; returns IsValid().
    bool ReadBinary(std::istream& stream);
    // Reads one binary facet from an MFile; returns IsValid().
    bool Read(KelSDK::FileIO::MFile& file);
    // Reads the next ASCII facet of the solid called name; false at end of input, at "endsolid name"
    // or for a non-finite corner; throws std::runtime_error("Can't convert double") on a bad number.
    bool ReadAscii(std::istream& stream, const std::string& name);

    // Writes the 50-byte facet (binary) or the stream text form; returns stream.good().
    bool Write(std::ostream& stream, bool binary) const;
    // Writes the binary facet or the "%f"/"%.8f" text form; false when the file reports an error.
    bool Write(KelSDK::FileIO::MFile& file, bool binary) const;
    // Writes the binary facet or the "%f"/"%.8f" text form; false when ferror(file) is set.
    bool Write(FILE* file, bool binary) const;

    // Fills the record from 50 little-endian bytes (float32 widened exactly; no validity test).
    void DecodeBinary(const unsigned char* bytes);
    // Stores the record as 50 little-endian bytes (doubles narrowed to float32, round to nearest).
    void EncodeBinary(unsigned char* bytes) const;

private:
    Point vertices_[3];
    Point normal_;
    uint16_t attribute_ = 0;
};
} // namespace KelSDK::Triangles::IO
