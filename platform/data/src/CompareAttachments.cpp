#include "CompareAttachments.h"

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlBaseElementInfo.h>
#include <KelSDK/Triangles/Data/MStlRevisionSystem.h>
#include <KelSDK/Triangles/Data/SurfaceZones.h>
#include <KelSDK/Triangles/Data/UVMapList.h>

#include <cstring>
#include <sstream>

namespace KelSDK::Triangles::Data
{
namespace
{
using KelSDK::Common::ImageBitmap;

// "" when both are absent or both present; else which one has it.
template <typename T> std::string Presence(const T* a, const T* b, const char* what)
{
    if ((a == nullptr) == (b == nullptr))
        return std::string();
    return std::string(what) + (a ? " present only in the first mesh" : " present only in the second mesh");
}

// Numbers from files may be NaN: equal when their bits are.
template <typename T> bool Same(const T& a, const T& b)
{
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

bool SameBitmap(const ImageBitmap* a, const ImageBitmap* b)
{
    return (a == nullptr && b == nullptr) || (a != nullptr && b != nullptr && *a == *b);
}

std::string CompareTextures(const MStlBase& a, const MStlBase& b)
{
    const MStlTextureList& ta = a.GetTextures();
    const MStlTextureList& tb = b.GetTextures();
    std::ostringstream o;
    if (ta.GetNumTextures() != tb.GetNumTextures())
    {
        o << "texture count " << ta.GetNumTextures() << " != " << tb.GetNumTextures();
        return o.str();
    }
    for (size_t i = 0; i < ta.GetNumTextures(); ++i)
    {
        const MStlTexture& x = *ta.GetTexture(i);
        const MStlTexture& y = *tb.GetTexture(i);
        o << "texture " << i << ": ";
        if (x.GetName() != y.GetName())
            return o.str() + "name differs";
        if (!SameBitmap(x.GetSharedBitmap().get(), y.GetSharedBitmap().get()))
            return o.str() + "bitmap differs";
        for (size_t j = 0; j < i; ++j)
        {
            const bool sharedA =
                x.GetSharedBitmap() && x.GetSharedBitmap() == ta.GetTexture(j)->GetSharedBitmap();
            const bool sharedB =
                y.GetSharedBitmap() && y.GetSharedBitmap() == tb.GetTexture(j)->GetSharedBitmap();
            if (sharedA != sharedB)
                return o.str() + "shares its bitmap with another texture in only one mesh";
        }
        if (x.Coordinates().size() != y.Coordinates().size())
            return o.str() + "coordinate count differs";
        for (size_t c = 0; c < x.Coordinates().size(); ++c)
        {
            const MStlTextureCoordinates& p = x.Coordinates()[c];
            const MStlTextureCoordinates& q = y.Coordinates()[c];
            if (p.triangle != q.triangle || !Same(p.u, q.u) || !Same(p.v, q.v))
            {
                o << "coordinates " << c << " differ";
                return o.str();
            }
        }
        const MStlTextureDisplacement& da = x.Displacement();
        const MStlTextureDisplacement& db = y.Displacement();
        if (da.enabled != db.enabled || !Same(da.depth, db.depth) || da.invert != db.invert)
            return o.str() + "displacement differs";
        const MStlTextureLabel& la = x.Label();
        const MStlTextureLabel& lb = y.Label();
        if (la.enabled != lb.enabled || la.text != lb.text || la.font != lb.font ||
            !Same(la.height, lb.height))
            return o.str() + "label differs";
        o.str(std::string());
    }
    return std::string();
}

template <typename Getter> std::string CompareValues(const char* what, size_t count, Getter getter)
{
    for (size_t i = 0; i < count; ++i)
        if (!(getter(0, i) == getter(1, i)))
        {
            std::ostringstream o;
            o << what << " of element " << i << " differs";
            return o.str();
        }
    return std::string();
}

std::string CompareElementInfo(const MStlBase& a, const MStlBase& b)
{
    const MStlBaseElementInfo* ia = MStlBaseElementInfoStlDependency::GetDependency(&a, false);
    const MStlBaseElementInfo* ib = MStlBaseElementInfoStlDependency::GetDependency(&b, false);
    std::string d = Presence(ia, ib, "element information");
    if (!d.empty() || ia == nullptr)
        return d;
    const MStlBaseElementInfo* info[2] = {ia, ib};
    if (ia->GetDefaultEdgeThickness() != ib->GetDefaultEdgeThickness())
        return "default edge thickness differs";
    if (ia->GetDefaultEdgeTolerance() != ib->GetDefaultEdgeTolerance())
        return "default edge tolerance differs";
    if (ia->GetDefaultEdgeCap() != ib->GetDefaultEdgeCap())
        return "default edge cap differs";
    if (ia->GetDefaultVertexRadius() != ib->GetDefaultVertexRadius())
        return "default vertex radius differs";
    if (ia->IsEdgeThicknessMaskDefined() != ib->IsEdgeThicknessMaskDefined())
        return "edge thickness mask defined in only one mesh";
    if (ia->IsEdgeToleranceMaskDefined() != ib->IsEdgeToleranceMaskDefined())
        return "edge tolerance mask defined in only one mesh";
    if (ia->IsEdgeCapMaskDefined() != ib->IsEdgeCapMaskDefined())
        return "edge cap mask defined in only one mesh";
    if (ia->IsVertexRadiusMaskDefined() != ib->IsVertexRadiusMaskDefined())
        return "vertex radius mask defined in only one mesh";
    const size_t edges = ia->GetNumberOfEdges(), vertices = ia->GetNumberOfVertices();
    if (!(d = CompareValues("edge thickness", edges,
                            [&](int m, size_t i) { return info[m]->GetEdgeThickness(i); }))
             .empty())
        return d;
    if (!(d = CompareValues("edge tolerance", edges,
                            [&](int m, size_t i) { return info[m]->GetEdgeTolerance(i, true); }))
             .empty())
        return d;
    if (!(d = CompareValues("edge caps", edges,
                            [&](int m, size_t i) { return info[m]->GetEdgeCaps(i, true); }))
             .empty())
        return d;
    return CompareValues("vertex radius", vertices,
                         [&](int m, size_t i) { return info[m]->GetVertexRadius(i, true); });
}

std::string CompareZones(const MStlBase& a, const MStlBase& b)
{
    const SurfaceZones* za = SurfaceZonesStlDependency::GetInstance(&a);
    const SurfaceZones* zb = SurfaceZonesStlDependency::GetInstance(&b);
    std::string d = Presence(za, zb, "surface zones");
    if (!d.empty() || za == nullptr)
        return d;
    const SurfaceZone* na = za->GetNoSupportZone();
    const SurfaceZone* nb = zb->GetNoSupportZone();
    if (!(d = Presence(na, nb, "no-support zone")).empty() || na == nullptr)
        return d;
    const size_t triangles = a.GetStlHybrid().GetNumTriangles(), edges = a.GetStlHybrid().GetNumberOfEdges();
    if (na->SortedTriangleIndices(triangles) != nb->SortedTriangleIndices(triangles))
        return "no-support zone: triangles differ";
    if (na->SortedEdgeIndices(edges) != nb->SortedEdgeIndices(edges))
        return "no-support zone: edges differ";
    return std::string();
}

std::string CompareUVMaps(const MStlBase& a, const MStlBase& b)
{
    const UVMapList* la = UVMapList::Get(&a, false);
    const UVMapList* lb = UVMapList::Get(&b, false);
    std::string d = Presence(la, lb, "UV map list");
    if (!d.empty() || la == nullptr)
        return d;
    std::ostringstream o;
    if (la->GetNumberOfMaps() != lb->GetNumberOfMaps())
    {
        o << "UV map count " << la->GetNumberOfMaps() << " != " << lb->GetNumberOfMaps();
        return o.str();
    }
    for (size_t i = 0; i < la->GetNumberOfMaps(); ++i)
    {
        const UVMap& x = *la->GetMap(i);
        const UVMap& y = *lb->GetMap(i);
        o << "UV map " << i << ": ";
        if (x.GetName() != y.GetName())
            return o.str() + "name differs";
        if (x.GetTextures().size() != y.GetTextures().size())
            return o.str() + "texture count differs";
        for (size_t t = 0; t < x.GetTextures().size(); ++t)
        {
            if (a.GetTextures().GetIndexOfTexture(x.GetTextures()[t]) !=
                b.GetTextures().GetIndexOfTexture(y.GetTextures()[t]))
                return o.str() + "texture positions differ";
            if ((x.GetSharedBitmap() == x.GetTextures()[t]->GetSharedBitmap()) !=
                (y.GetSharedBitmap() == y.GetTextures()[t]->GetSharedBitmap()))
                return o.str() + "shares its bitmap with a texture in only one mesh";
        }
        if (!Same(x.GetXYZToUFactor(), y.GetXYZToUFactor()) ||
            !Same(x.GetXYZToVFactor(), y.GetXYZToVFactor()))
            return o.str() + "factors differ";
        if (x.GetKeepUVAspectRatio() != y.GetKeepUVAspectRatio() || x.GetSizeMethod() != y.GetSizeMethod())
            return o.str() + "sizing differs";
        if (x.GetVisibility() != y.GetVisibility() || x.GetBitmapVisibility() != y.GetBitmapVisibility())
            return o.str() + "visibility differs";
        if (!SameBitmap(x.GetSharedBitmap().get(), y.GetSharedBitmap().get()))
            return o.str() + "bitmap differs";
        o.str(std::string());
    }
    return std::string();
}

std::string CompareCards(const MStlBase& a, const MStlBase& b)
{
    const MStlRevisionSystem::MIDCard* ca = MStlRevisionSystem::FindIDCard(&a);
    const MStlRevisionSystem::MIDCard* cb = MStlRevisionSystem::FindIDCard(&b);
    if (ca == nullptr || cb == nullptr || *ca == *cb)
        return std::string();
    if (ca->GetGlobalID() != cb->GetGlobalID())
        return "identity card: global identifier differs";
    if (ca->GetRevision() != cb->GetRevision())
        return "identity card: revision differs";
    if (ca->RevisionUpToDate() != cb->RevisionUpToDate())
        return "identity card: up-to-date flag differs";
    return "identity card: history or parents differ";
}
} // namespace

std::string CompareAttachments(const MStlBase& a, const MStlBase& b)
{
    for (auto compare : {CompareTextures, CompareElementInfo, CompareZones, CompareUVMaps, CompareCards})
    {
        std::string difference = compare(a, b);
        if (!difference.empty())
            return difference;
    }
    return std::string();
}
} // namespace KelSDK::Triangles::Data
