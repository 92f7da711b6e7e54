#include <KelSDK/Common/Progress.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Math/Transform.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>

#include <cmath>
#include <string>
#include <vector>

namespace KelSDK::Triangles::IO
{
using KelSDK::FileIO::MFile;
using KelSDK::Math::point;
using namespace KelSDK::Triangles::Data;

namespace
{
constexpr int64_t WriteBufferSize = 262144;
constexpr int64_t BinaryHeaderSize = 80;
constexpr const char* WriteScope = "KelSDK.Triangles.Data.MStlFileWriter.WriteStlBase";

enum State : int32_t
{
    StateNew = 0,
    StateOpened = 1,
    StateHeaderWritten = 2,
    StateClosed = 3
};

bool WriteWord(MFile& file, uint32_t word)
{
    return file.WriteInt32(&word, 1);
}

// Triangles are written in their own order, but their points lie elsewhere (the point list is
// sorted by position), so each triangle's corners are a cache miss. Asking for the corners of a
// triangle some steps ahead hides that wait.
constexpr size_t PrefetchDistance = 16;

inline void PrefetchCorners(const MStlTriangle& triangle)
{
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(triangle.GetPoint0());
    __builtin_prefetch(triangle.GetPoint1());
    __builtin_prefetch(triangle.GetPoint2());
#else
    (void)triangle;
#endif
}
} // namespace

MStlFileWriter::MStlFileWriter(const MStlWriteOptions& options) : options_(options) {}

MStlFileWriter::~MStlFileWriter()
{
    if (state_ != StateNew)
        Close();
}

void MStlFileWriter::SetFileName(const wchar_t* name)
{
    fileName_ = name != nullptr ? name : L"";
}

void MStlFileWriter::SetStlToWrite(const MStlBase* stl)
{
    mesh_ = stl;
}

void MStlFileWriter::SetWriteTransformation(const KelSDK::Math::MMTransform* transformation)
{
    transformation_.reset(transformation != nullptr ? transformation->Clone() : nullptr);
}

bool MStlFileWriter::OpenWrite()
{
    file_ = std::make_unique<MFile>(WriteBufferSize);
    const bool opened =
        options_.binary ? file_->OPEN_WRITE(fileName_.c_str()) : file_->OPEN_ASCII_WRITE(fileName_.c_str());
    if (!opened)
    {
        file_->Close();
        file_.reset();
        state_ = StateClosed;
        return false;
    }
    state_ = StateOpened;
    facetCount_ = 0;
    return true;
}

// Binary header, 80 bytes, followed by the facet count:
//   with colours   "COLOR=" R G B A ",MATERIAL=" diffuse specular ambient shininess(float32)
//   support        ";ISSUP"
//   solid flag     ";SOLID" or ";FACES"
//   one zero byte, then spaces up to byte 80; then the uint32 count (0 until Close patches it).
// All words little-endian. The longest content is 49 bytes, so the count always starts at byte 80.
bool MStlFileWriter::WriteHeader(const MStlBase* mesh, const MStlMaterial* material)
{
    if (!file_)
        return false;
    if (options_.withColors)
        material_ = material;
    if (options_.binary && mesh != nullptr)
    {
        MFile& file = *file_;
        if (options_.withColors)
        {
            const MStlMaterial& own = mesh->GetMaterial();
            const float shininess = own.GetShininess();
            file.WRITE_STRING("COLOR=");
            WriteWord(file, own.GetRGB());
            file.WRITE_STRING(",MATERIAL=");
            WriteWord(file, own.GetDiffuse());
            WriteWord(file, own.GetSpecular());
            WriteWord(file, own.GetAmbient());
            file.WRITE(&shininess, 1);
        }
        if (mesh->GetProperties().GetIsSupport())
            file.WRITE_STRING(";ISSUP");
        file.WRITE_STRING(mesh->GetProperties().GetIsSupposedSolid() ? ";SOLID" : ";FACES");
        const char zero = 0;
        file.WRITE(&zero, 1);
        while (!file.HasError() && file.Tell() < BinaryHeaderSize)
            file.WRITE_STRING(" ");
        const uint32_t placeholder = 0;
        file.WriteInt32(&placeholder, 1);
    }
    state_ = StateHeaderWritten;
    file_->Flush();
    return file_->GetStatus() == 0;
}

bool MStlFileWriter::Write(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    if (state_ == StateNew && !OpenWrite())
        return false;
    if (state_ == StateOpened && (mesh_ == nullptr || !WriteHeader(mesh_, &mesh_->GetMaterial())))
        return false;
    if (state_ != StateHeaderWritten || !file_ || file_->GetStatus() != 0 || mesh_ == nullptr)
        return false;
    if (static_cast<int>(mesh_->GetStlHybrid().GetState()) == 0)
        return _WriteStandard(progress);
    return _WriteHybrid();
}

bool MStlFileWriter::_WriteStandard(const std::shared_ptr<KelSDK::Common::IProgressDelegate>& progress)
{
    KelSDK::Common::IncrementalProgressReporter reporter(progress, WriteScope, mesh_->NumberOfTriangles());
    MFile& file = *file_;
    MStlFileTriangle facet;
    if (!options_.binary && !options_.solidPerSurface)
    {
        const std::string name = KelSDK::Common::StringConversion::NativeToLocale(mesh_->GetName().c_str());
        if (!file.FPRINTF("solid %s\n", name.c_str()))
            return false;
        const auto triangles = mesh_->Triangles();
        auto ahead = triangles.begin();
        for (size_t i = 0; i < PrefetchDistance && ahead != triangles.end(); ++i, ++ahead)
            PrefetchCorners(*ahead);
        for (const MStlTriangle& triangle : triangles)
        {
            if (ahead != triangles.end())
            {
                PrefetchCorners(*ahead);
                ++ahead;
            }
            ++reporter;
            if (!_WriteTriangle(triangle, facet))
                return false;
        }
        return file.FPRINTF("endsolid %s\n", name.c_str());
    }
    MStlIteratorFeatureSurfaceConst it(*mesh_);
    for (it.Begin(); !it.End(); ++it)
    {
        const MStlSurface& surface = *it;
        std::string name;
        if (!options_.binary)
        {
            name = KelSDK::Common::StringConversion::NativeToLocale(surface.GetName().c_str());
            if (!file.FPRINTF("solid %s\n", name.c_str()))
                return false;
        }
        const std::vector<MStlTriangle*>& triangles = surface.Triangles();
        for (size_t t = 0; t < PrefetchDistance && t < triangles.size(); ++t)
            PrefetchCorners(*triangles[t]);
        for (size_t t = 0; t < triangles.size(); ++t)
        {
            if (t + PrefetchDistance < triangles.size())
                PrefetchCorners(*triangles[t + PrefetchDistance]);
            ++reporter;
            if (!_WriteTriangle(*triangles[t], facet))
                return false;
        }
        if (!options_.binary && !file.FPRINTF("endsolid %s\n", name.c_str()))
            return false;
    }
    return true;
}

// facet is a scratch record reused for every triangle; every field is set here.
bool MStlFileWriter::_WriteTriangle(const MStlTriangle& triangle, MStlFileTriangle& facet)
{
    if (triangle.IsCollapsed())
        return true;
    uint16_t attribute = 0;
    if (options_.withColors)
    {
        MStlColor color = triangle.GetColor();
        // A triangle without a colour of its own shows the mesh colour; it is written explicitly
        // unless it is what the header colour already says.
        const uint32_t headerColor = material_ != nullptr ? (material_->GetRGB() & 0xFFFFFFu) : 0u;
        if (!color.IsDefined() && mesh_->GetRGB() != headerColor)
            color.SetRGB(mesh_->GetRGB());
        attribute = MStlColor::ConvertTo16BitValue(color);
    }
    const MStlPoint* p[3] = {triangle.GetPoint0(), triangle.GetPoint1(), triangle.GetPoint2()};
    const point<double, 3> corners[3] = {point<double, 3>(p[0]->GetX(), p[0]->GetY(), p[0]->GetZ()),
                                         point<double, 3>(p[1]->GetX(), p[1]->GetY(), p[1]->GetZ()),
                                         point<double, 3>(p[2]->GetX(), p[2]->GetY(), p[2]->GetZ())};
    return _WriteFacet(facet, triangle.GetNormal(), corners, attribute);
}

// Scale and transformation of one facet, then its encoding. The normal is transformed as a
// direction and never scaled; it is brought back to unit length unless the transformation is an
// orthonormal matrix (which keeps lengths). Every field of the record is set here, so one record
// serves all facets.
bool MStlFileWriter::_WriteFacet(MStlFileTriangle& facet, point<double, 3> normal,
                                 const point<double, 3> (&corners)[3], uint16_t attribute)
{
    if (transformation_)
    {
        if (!transformation_->Transform(normal, true))
            return false;
        const auto* matrix = dynamic_cast<const KelSDK::Math::MMTransformMatrix*>(transformation_.get());
        if (matrix == nullptr || !matrix->IsOrthoNormal())
            normal.normalize();
    }
    facet.SetNormal(normal);
    for (int k = 0; k < 3; ++k)
    {
        point<double, 3> corner = corners[k] * options_.scale;
        if (transformation_)
        {
            point<double, 3> moved;
            if (!transformation_->Transform(moved, corner, false))
                return false;
            corner = moved;
        }
        facet.SetVertex(k, corner);
    }
    facet.SetAttribute(attribute);
    if (options_.binary)
    {
        // The record's own 50-byte encoding, handed to the file in one piece.
        unsigned char bytes[MStlFileTriangle::BINARY_SIZE];
        facet.EncodeBinary(bytes);
        if (!file_->WRITE(bytes, sizeof(bytes)))
            return false;
    }
    else if (!facet.Write(*file_, false))
        return false;
    ++facetCount_;
    return file_->GetStatus() == 0;
}

// Compact and on-disk stores are read back by index; their facets carry the geometric normal of
// the stored corners and, with colours, the stored triangle colour.
bool MStlFileWriter::_WriteHybrid()
{
    MFile& file = *file_;
    std::string name;
    if (!options_.binary)
    {
        name = KelSDK::Common::StringConversion::NativeToLocale(mesh_->GetName().c_str());
        if (!file.FPRINTF("solid %s\n", name.c_str()))
            return false;
    }
    const MStlHybrid& hybrid = mesh_->GetStlHybrid();
    if (!hybrid.OpenRead())
        return false;
    if (options_.withColors)
        hybrid.StartGettingTriangleColors();
    bool ok = true;
    MStlFileTriangle facet;
    const size_t count = hybrid.GetNumTriangles();
    for (size_t t = 0; t < count && ok; ++t)
    {
        unsigned index[3];
        hybrid.GetTriangle(t, index[0], index[1], index[2]);
        point<double, 3> corners[3];
        for (int k = 0; k < 3; ++k)
        {
            int x = 0, y = 0, z = 0;
            hybrid.GetVertex(index[k], x, y, z);
            corners[k] = point<double, 3>(x, y, z);
            facet.SetVertex(k, corners[k]);
        }
        const uint16_t attribute =
            options_.withColors ? MStlColor::ConvertTo16BitValue(hybrid.GetColor(t)) : uint16_t(0);
        ok = _WriteFacet(facet, facet.GetGeometricNormal(), corners, attribute);
    }
    hybrid.Close();
    if (!ok)
        return false;
    return options_.binary || file.FPRINTF("endsolid %s\n", name.c_str());
}

bool MStlFileWriter::Close()
{
    if (!file_)
        return false;
    if (options_.binary && file_->IsOpenForWriting() && file_->Seek(BinaryHeaderSize))
    {
        file_->WriteInt32(&facetCount_, 1);
        file_->Flush();
    }
    file_->Close();
    const bool ok = file_->GetStatus() == 0;
    file_.reset();
    state_ = StateClosed;
    return ok;
}
} // namespace KelSDK::Triangles::IO
