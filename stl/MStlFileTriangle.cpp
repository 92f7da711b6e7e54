#include "MStlFileTriangleAscii.h"
#include "MStlFileTriangleBinary.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <charconv>
#include <cmath>
#include <istream>
#include <ostream>

namespace KelSDK::Triangles::IO
{
namespace
{
// Tokens of an std::istream read with operator>>, so that the stream's own state and position
// follow every token exactly.
class IstreamTokens
{
public:
    explicit IstreamTokens(std::istream& stream) : stream_(stream) {}

    bool Next(std::string_view& token)
    {
        if (!(stream_ >> text_))
            return false;
        token = text_;
        return true;
    }
    bool AtEnd() const { return stream_.eof(); }

private:
    std::istream& stream_;
    std::string text_;
};

// Appends value as printf's "%.<precision>f" would in the "C" locale (a decimal point whatever the
// process locale; "inf", "-inf", "nan", "-nan" for the special values).
char* AppendFixed(char* out, char* end, double value, int precision)
{
    const std::to_chars_result r = std::to_chars(out, end, value, std::chars_format::fixed, precision);
    return r.ec == std::errc() ? r.ptr : out;
}

char* AppendText(char* out, const char* text)
{
    while (*text != '\0')
        *out++ = *text++;
    return out;
}

// The text form of the formatted targets (FILE*), one line each:
//   facet normal %f %f %f / outer loop / vertex %.8f %.8f %.8f (x3) / endloop / endfacet
// A "%f" of the largest double has 309 digits before the point; 12 numbers and the keywords fit in
// 12 * 330 + 100 bytes.
std::size_t FormatFacetText(const MStlFileTriangle& facet, char* buffer, std::size_t size)
{
    char* out = buffer;
    char* const end = buffer + size;
    out = AppendText(out, "facet normal ");
    for (std::size_t axis = 0; axis < 3; ++axis)
    {
        out = AppendFixed(out, end, facet.GetNormal()[axis], 6);
        *out++ = axis < 2 ? ' ' : '\n';
    }
    out = AppendText(out, "outer loop\n");
    for (std::size_t corner = 0; corner < 3; ++corner)
    {
        out = AppendText(out, "vertex ");
        for (std::size_t axis = 0; axis < 3; ++axis)
        {
            out = AppendFixed(out, end, facet.GetVertex(corner)[axis], 8);
            *out++ = axis < 2 ? ' ' : '\n';
        }
    }
    out = AppendText(out, "endloop\nendfacet\n");
    return static_cast<std::size_t>(out - buffer);
}
constexpr std::size_t kFacetTextCapacity = 12 * 330 + 100;
} // namespace

bool MStlFileTriangle::IsValid() const
{
    for (const Point& v : vertices_)
    {
        if (!std::isfinite(v[0]) || !std::isfinite(v[1]) || !std::isfinite(v[2]))
            return false;
    }
    return true;
}

MStlFileTriangle::Point MStlFileTriangle::GetGeometricNormal() const
{
    return (vertices_[1] - vertices_[0]).cross(vertices_[2] - vertices_[0]).normalized();
}

MStlFileTriangle::Point MStlFileTriangle::GetNormalizedNormal() const
{
    return normal_.normalized();
}

bool MStlFileTriangle::Read(std::istream& stream, bool binary)
{
    return binary ? ReadBinary(stream) : ReadAscii(stream, std::string());
}

bool MStlFileTriangle::ReadBinary(std::istream& stream)
{
    // One scratch buffer for the four fields: a short read keeps what the previous field left in it,
    // and the result stays the validity test (callers check the stream themselves).
    unsigned char scratch[12] = {};
    const auto field = [&]()
    {
        stream.read(reinterpret_cast<char*>(scratch), sizeof scratch);
        return Point(Detail::LoadF32(scratch), Detail::LoadF32(scratch + 4), Detail::LoadF32(scratch + 8));
    };
    normal_ = field();
    for (Point& v : vertices_)
        v = field();
    unsigned char word[2] = {0, 0};
    stream.read(reinterpret_cast<char*>(word), 2);
    attribute_ = static_cast<uint16_t>(word[0] | (word[1] << 8));
    return IsValid();
}

bool MStlFileTriangle::Read(KelSDK::FileIO::MFile& file)
{
    float values[3];
    const auto field = [&]()
    {
        file.READ(values, 3);
        return Point(values[0], values[1], values[2]);
    };
    normal_ = field();
    for (Point& v : vertices_)
        v = field();
    file.ReadInt16(&attribute_, 1);
    return IsValid();
}

bool MStlFileTriangle::ReadAscii(std::istream& stream, const std::string& name)
{
    IstreamTokens tokens(stream);
    return Detail::ParseAsciiFacet(tokens, *this, name);
}

bool MStlFileTriangle::Write(std::ostream& stream, bool binary) const
{
    if (binary)
    {
        unsigned char bytes[BINARY_SIZE];
        Detail::EncodeBinaryFacet(*this, bytes);
        stream.write(reinterpret_cast<const char*>(bytes), BINARY_SIZE);
        return stream.good();
    }
    // The stream text form keeps the stream's own number formatting, and its vertex lines carry the
    // "facet vertex " prefix; readers skip the extra word, and existing output stays byte-identical.
    stream << "facet normal " << normal_[0] << ' ' << normal_[1] << ' ' << normal_[2] << std::endl;
    stream << "outer loop" << std::endl;
    for (const Point& v : vertices_)
        stream << "facet vertex " << v[0] << ' ' << v[1] << ' ' << v[2] << std::endl;
    stream << "endloop" << std::endl;
    stream << "endfacet" << std::endl;
    return stream.good();
}

bool MStlFileTriangle::Write(KelSDK::FileIO::MFile& file, bool binary) const
{
    if (binary)
    {
        const auto field = [&file](const Point& p)
        {
            const float values[3] = {static_cast<float>(p[0]), static_cast<float>(p[1]),
                                     static_cast<float>(p[2])};
            file.WRITE(values, 3);
        };
        field(normal_);
        for (const Point& v : vertices_)
            field(v);
        file.WriteInt16(&attribute_, 1);
        return !file.HasError();
    }
    file.FPRINTF("facet normal %f %f %f\n", normal_[0], normal_[1], normal_[2]);
    file.WRITE_STRING("outer loop\n");
    for (const Point& v : vertices_)
        file.FPRINTF("vertex %.8f %.8f %.8f\n", v[0], v[1], v[2]);
    file.WRITE_STRING("endloop\n");
    file.WRITE_STRING("endfacet\n");
    return !file.HasError();
}

bool MStlFileTriangle::Write(FILE* file, bool binary) const
{
    if (binary)
    {
        unsigned char bytes[BINARY_SIZE];
        Detail::EncodeBinaryFacet(*this, bytes);
        for (std::size_t field = 0; field < 4; ++field)
            std::fwrite(bytes + 12 * field, 1, 12, file);
        std::fwrite(bytes + 48, 1, 2, file);
        return std::ferror(file) == 0;
    }
    // fprintf would follow the process locale (a decimal comma in some); the text is formatted here
    // with the "C" rules and written in one piece.
    char text[kFacetTextCapacity];
    const std::size_t length = FormatFacetText(*this, text, sizeof text);
    std::fwrite(text, 1, length, file);
    return std::ferror(file) == 0;
}

void MStlFileTriangle::DecodeBinary(const unsigned char* bytes)
{
    Detail::DecodeBinaryFacet(bytes, *this);
}

void MStlFileTriangle::EncodeBinary(unsigned char* bytes) const
{
    Detail::EncodeBinaryFacet(*this, bytes);
}
} // namespace KelSDK::Triangles::IO
