#include "CompareAttachments.h"

#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlCompare.h>

#include <sstream>

namespace KelSDK::Triangles::Data
{
namespace
{
std::string Narrow(const std::wstring& w)
{
    std::string s;
    for (wchar_t c : w)
        s += (c >= 32 && c < 127) ? static_cast<char>(c) : '?';
    return s;
}

std::string ColorText(const MStlColor& c)
{
    if (!c.IsDefined())
        return "undefined";
    std::ostringstream o;
    o << "0x" << std::hex << c.GetRGB();
    return o.str();
}

// Position of a triangle's surface in its mesh's surface list (SIZE_MAX for none).
size_t SurfacePosition(const MStlBase& stl, size_t triangle)
{
    const MStlSurface* s = stl.GetStlHybrid().GetTriangleSurface(triangle);
    return s ? stl.GetSurfaceList().GetIndexOfSurface(s) : SIZE_MAX;
}

std::string CompareContent(const MStlBase& a, const MStlBase& b, const MStlCompareOptions& options)
{
    std::ostringstream o;
    const MStlHybrid& ha = a.GetStlHybrid();
    const MStlHybrid& hb = b.GetStlHybrid();
    if (options.storageKind && ha.GetState() != hb.GetState())
    {
        o << "storage kind " << ha.GetState() << " != " << hb.GetState();
        return o.str();
    }
    if (options.attributes)
    {
        if (a.GetName() != b.GetName())
            return "name \"" + Narrow(a.GetName()) + "\" != \"" + Narrow(b.GetName()) + "\"";
        if (a.GetRGB() != b.GetRGB())
        {
            o << "mesh colour 0x" << std::hex << a.GetRGB() << " != 0x" << b.GetRGB();
            return o.str();
        }
        if (a.GetMaterial() != b.GetMaterial())
            return "material differs";
        if (a.GetProperties().GetIsSupport() != b.GetProperties().GetIsSupport())
            return "support flag differs";
        if (a.GetProperties().GetIsSupposedSolid() != b.GetProperties().GetIsSupposedSolid())
            return "supposed-solid flag differs";
    }
    const size_t nv = ha.GetNumVertices(), nt = ha.GetNumTriangles();
    if (nv != hb.GetNumVertices())
    {
        o << "vertex count " << nv << " != " << hb.GetNumVertices();
        return o.str();
    }
    if (nt != hb.GetNumTriangles())
    {
        o << "triangle count " << nt << " != " << hb.GetNumTriangles();
        return o.str();
    }
    for (size_t i = 0; i < nv; ++i)
    {
        int ax = 0, ay = 0, az = 0, bx = 0, by = 0, bz = 0;
        const bool okA = ha.GetVertex(i, ax, ay, az), okB = hb.GetVertex(i, bx, by, bz);
        if (okA != okB || ax != bx || ay != by || az != bz)
        {
            o << "vertex " << i << ": (" << ax << ", " << ay << ", " << az << ") != (" << bx << ", " << by
              << ", " << bz << ")";
            return o.str();
        }
    }
    if (options.userDefined && ha.GetState() == eStlStandard && hb.GetState() == eStlStandard)
    {
        const MStlPoint* pa = a.GetPointList().GetFirstPoint();
        const MStlPoint* pb = b.GetPointList().GetFirstPoint();
        for (size_t i = 0; pa && pb; ++i, pa = pa->GetNext(), pb = pb->GetNext())
            if (pa->IsUserDefined(false) != pb->IsUserDefined(false))
            {
                o << "vertex " << i << ": user-defined mark differs";
                return o.str();
            }
    }
    const bool colorsA = options.colors && ha.StartGettingTriangleColors();
    const bool colorsB = options.colors && hb.StartGettingTriangleColors();
    for (size_t i = 0; i < nt; ++i)
    {
        unsigned a0 = 0, a1 = 0, a2 = 0, b0 = 0, b1 = 0, b2 = 0;
        const bool okA = ha.GetTriangle(i, a0, a1, a2), okB = hb.GetTriangle(i, b0, b1, b2);
        if (okA != okB || a0 != b0 || a1 != b1 || a2 != b2)
        {
            o << "triangle " << i << ": vertex indices (" << a0 << ", " << a1 << ", " << a2 << ") != (" << b0
              << ", " << b1 << ", " << b2 << ")";
            return o.str();
        }
        if (options.colors)
        {
            const MStlColor ca = colorsA ? ha.GetColor(i) : MStlColor();
            const MStlColor cb = colorsB ? hb.GetColor(i) : MStlColor();
            if (ca != cb)
            {
                o << "triangle " << i << ": colour " << ColorText(ca) << " != " << ColorText(cb);
                return o.str();
            }
        }
        if (options.surfaces)
        {
            const size_t sa = SurfacePosition(a, i), sb = SurfacePosition(b, i);
            if (sa != sb)
            {
                o << "triangle " << i << ": surface " << static_cast<long long>(sa)
                  << " != " << static_cast<long long>(sb);
                return o.str();
            }
        }
    }
    if (options.surfaces)
    {
        const size_t ns = a.GetSurfaceList().GetNumSurfaces(false);
        if (ns != b.GetSurfaceList().GetNumSurfaces(false))
        {
            o << "surface count " << ns << " != " << b.GetSurfaceList().GetNumSurfaces(false);
            return o.str();
        }
        for (size_t i = 0; i < ns; ++i)
            if (a.GetSurfaceList().GetSurface(i)->GetName() != b.GetSurfaceList().GetSurface(i)->GetName())
            {
                o << "surface " << i << ": name \"" << Narrow(a.GetSurfaceList().GetSurface(i)->GetName())
                  << "\" != \"" << Narrow(b.GetSurfaceList().GetSurface(i)->GetName()) << "\"";
                return o.str();
            }
    }
    if (options.faceGroups)
    {
        const MStlBaseFaceGroupInfo* fa = a.GetFaceGroupInfo();
        const MStlBaseFaceGroupInfo* fb = b.GetFaceGroupInfo();
        if ((fa == nullptr) != (fb == nullptr))
            return fa ? "face groups present only in the first mesh"
                      : "face groups present only in the second mesh";
        for (size_t i = 0; fa && i < nt; ++i)
            if (fa->GetFaceID(i) != fb->GetFaceID(i))
            {
                o << "triangle " << i << ": face group " << fa->GetFaceID(i) << " != " << fb->GetFaceID(i);
                return o.str();
            }
    }
    if (options.attachments)
        return CompareAttachments(a, b);
    return std::string();
}
} // namespace

std::string CompareMeshes(const MStlBase& a, const MStlBase& b, const MStlCompareOptions& options)
{
    const bool openA = a.GetStlHybrid().OpenRead();
    const bool openB = b.GetStlHybrid().OpenRead();
    std::string result;
    if (!openA || !openB)
        result = openA ? "the second mesh cannot be read" : "the first mesh cannot be read";
    else
        result = CompareContent(a, b, options);
    a.GetStlHybrid().Close();
    b.GetStlHybrid().Close();
    return result;
}
} // namespace KelSDK::Triangles::Data
