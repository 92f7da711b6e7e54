#include <KelSDK/Triangles/Data/MStlBase.h>

#include <algorithm>
#include <limits>
#include <type_traits>

namespace KelSDK::Triangles::Data
{
MStlBase::MStlBase()
    : properties_(this), hybrid_(this), pointList_(*this),
      surfaceList_(std::make_unique<MStlSurfaceList>(this)), curves_(this), borders_(this)
{
    textures_.owner_ = this;
}

MStlBase::~MStlBase()
{
    // Attachments may look at the mesh while they go; they go first.
    dependencies_.clear();
}

MStlIteratorStlPointConst MStlBase::BeginPoint() const
{
    return MStlIteratorStlPointConst(&points_, 0, 0);
}
MStlIteratorStlPointConst MStlBase::EndPoint() const
{
    return MStlIteratorStlPointConst(&points_, points_.Blocks().size(), 0);
}
MStlIteratorStlTriangleConst MStlBase::BeginTriangle() const
{
    return MStlIteratorStlTriangleConst(&triangles_, 0, 0);
}
MStlIteratorStlTriangleConst MStlBase::EndTriangle() const
{
    return MStlIteratorStlTriangleConst(&triangles_, triangles_.Blocks().size(), 0);
}
MStlRange<MStlIteratorStlEdgeConst> MStlBase::GraphEdges() const
{
    return {MStlIteratorStlEdgeConst(&edges_, 0, 0),
            MStlIteratorStlEdgeConst(&edges_, edges_.Blocks().size(), 0)};
}

void MStlBase::_ClearGeometry()
{
    pointList_._Clear();
    points_.Clear();
    triangles_.Clear();
    edges_.Clear();
    for (size_t i = 0; i < surfaceList_->GetNumSurfaces(false); ++i)
        surfaceList_->GetSurface(i)->triangles_ = std::vector<MStlTriangle*>();
    hybrid_._Clear();
    colorMasks_.Clear();
    faceGroups_.reset();
    marks_.InvalidateValidity();
    borders_.Clear();
    validity_.InvalidateBoundingBox();
    validity_.ValidateTriangleVisibilities();
}

void MStlBase::ClearStl(bool all)
{
    _ClearGeometry();
    if (all)
    {
        surfaceList_->surfaces_.resize(1);
        MStlSurface* main = surfaceList_->GetSurface(0);
        main->SetName(std::wstring());
        main->SetVisible(true);
        curves_.Clear();
        registeredPoints_.Clear();
        textures_.Clear();
        history_.Clear();
    }
    for (auto& d : dependencies_)
        d.second->OnClear(*this);
}

MStlPoint* MStlBase::CreatePoint(int x, int y, int z)
{
    MStlPoint* p = points_.Add(MStlPoint(x, y, z));
    pointList_._Append(p, p, 1);
    pointList_._IndexNewPoints(p, 1, true); // one point is a sorted run
    validity_.InvalidateBoundingBox();
    _NotifyPointsAdded(points_.Size() - 1, 1);
    return p;
}

namespace
{
// Points given as a vector, which goes once all are placed.
struct VectorPoints
{
    std::vector<std::array<int, 3>>& points;
    size_t Size() const { return points.size(); }
    const std::array<int, 3>& At(size_t i) const { return points[i]; }
    void ReleaseBefore(size_t) {}
    void Clear() { points = std::vector<std::array<int, 3>>(); }
};

// Points given as a block list, released block by block as they are placed.
struct BlockPoints
{
    MStlBlockList<std::array<int, 3>>& points;
    size_t Size() const { return points.Size(); }
    const std::array<int, 3>& At(size_t i) const { return points[i]; }
    void ReleaseBefore(size_t i) { points.ReleaseBefore(i); }
    void Clear() { points.Clear(); }
};
} // namespace

bool MStlBase::CreatePoints(std::vector<std::array<int, 3>> points, std::vector<MStlPoint*>* createdPoints)
{
    if (hybrid_.GetState() != eStlStandard)
        return false;
    const size_t n = points.size();
    if (createdPoints)
        createdPoints->clear();
    if (n == 0)
        return true;
    const size_t firstIndex = points_.Size();
    _AppendPointRun(points, createdPoints);
    validity_.InvalidateBoundingBox();
    _NotifyPointsAdded(firstIndex, n);
    return true;
}

size_t MStlBase::NumberOfTriangles() const
{
    return hybrid_.GetState() == eStlStandard ? triangles_.Size() : hybrid_.GetNumTriangles();
}

MStlTriangle* MStlBase::CreateTriangle(MStlPoint* p0, MStlPoint* p1, MStlPoint* p2, MStlSurface* surface)
{
    if (hybrid_.GetState() != eStlStandard || !p0 || !p1 || !p2 ||
        triangles_.Size() >= std::numeric_limits<uint32_t>::max())
        return nullptr;
    if (!surface)
        surface = GetMainSurface();
    else if (surface->GetStl() != this)
        return nullptr;
    MStlTriangle* t = triangles_.Reserve(1);
    new (t) MStlTriangle();
    t->points_[0] = p0;
    t->points_[1] = p1;
    t->points_[2] = p2;
    t->surface_ = surface;
    t->index_ = static_cast<uint32_t>(triangles_.Size());
    triangles_.Commit(1);
    surface->triangles_.push_back(t);
    _NotifyTrianglesAdded(t->index_, 1);
    return t;
}

// Bulk creation over any form of the input. Points: Size(), At(i), ReleaseBefore(i) (the input
// before i is no longer needed), Clear(). Lists of index triples: Count() lists, Size(s) triples in
// list s, At(s, i) the i-th of them, Consumed(s, i) once the triples before the i-th of list s have
// been used.
class MStlBaseImpl
{
public:
    // Places the points at the end of the point store in runs of whole pool blocks (input index i
    // is result[i / PieceElements] + i % PieceElements), links and indexes them, frees the input as
    // it goes and lists them in *createdPoints when given.
    template <typename Points>
    static std::vector<MStlPoint*> AppendPoints(MStlBase& mesh, Points& points, std::vector<MStlPoint*>* createdPoints)
    {
        constexpr size_t piece = MStlBlockPool<MStlPoint>::PieceElements;
        const size_t n = points.Size();
        std::vector<MStlPoint*> runs;
        if (createdPoints)
            createdPoints->resize(n);
        if (n == 0)
            return runs;
        bool sorted = true;
        MStlPoint* first = nullptr;
        MStlPoint* previous = nullptr;
        for (size_t done = 0; done < n;)
        {
            const size_t count = std::min(piece, n - done);
            MStlPoint* run = mesh.points_.Reserve(count);
            runs.push_back(run);
            for (size_t i = 0; i < count; ++i)
            {
                const std::array<int, 3>& c = points.At(done + i);
                MStlPoint* p = new (run + i) MStlPoint(c[0], c[1], c[2]);
                if (previous != nullptr)
                {
                    previous->next_ = p;
                    sorted = sorted && !MStlPoint::LessZXY(*p, *previous);
                }
                else
                {
                    first = p;
                }
                previous = p;
                if (createdPoints)
                    (*createdPoints)[done + i] = p;
            }
            mesh.points_.Commit(count);
            done += count;
            points.ReleaseBefore(done);
        }
        points.Clear();
        mesh.pointList_._Append(first, previous, n);
        mesh.pointList_._IndexNewPoints(first, n, sorted);
        return runs;
    }

    template <typename Points, typename Lists>
    static bool Create(MStlBase& mesh, Points& points, Lists& lists, const std::vector<MStlSurface*>* surfaces,
                       std::vector<MStlPoint*>* createdPoints, std::vector<MStlTriangle*>* createdTriangles)
    {
        if (mesh.hybrid_.GetState() != eStlStandard)
            return false;
        // Check everything before touching the mesh: surfaces, counts, indices.
        const size_t numPoints = points.Size();
        size_t numTriangles = 0;
        std::vector<MStlSurface*> target(lists.Count(), nullptr);
        for (size_t s = 0; s < lists.Count(); ++s)
        {
            MStlSurface* surface = (surfaces && s < surfaces->size()) ? (*surfaces)[s] : nullptr;
            if (surface && surface->GetStl() != &mesh)
                return false;
            target[s] = surface ? surface : mesh.GetMainSurface();
            for (size_t i = 0, n = lists.Size(s); i < n; ++i)
            {
                const auto& t = lists.At(s, i);
                if (t[0] >= numPoints || t[1] >= numPoints || t[2] >= numPoints)
                    return false;
            }
            numTriangles += lists.Size(s);
        }
        const size_t firstTriangle = mesh.triangles_.Size();
        if (numTriangles > std::numeric_limits<uint32_t>::max() - firstTriangle)
            return false;

        // Points in runs of whole pool blocks: input index i is in run i / piece.
        const size_t firstPoint = mesh.points_.Size();
        constexpr size_t piece = MStlBlockPool<MStlPoint>::PieceElements;
        const std::vector<MStlPoint*> runs = AppendPoints(mesh, points, createdPoints);
        const auto point = [&runs](size_t i) { return runs[i / piece] + i % piece; };

        // Triangles in input order, in runs of whole pool blocks; the input goes as it is used.
        if (createdTriangles)
        {
            createdTriangles->clear();
            createdTriangles->reserve(numTriangles);
        }
        constexpr size_t trianglePiece = MStlBlockPool<MStlTriangle>::PieceElements;
        size_t left = numTriangles, room = 0;
        MStlTriangle* t = nullptr;
        uint32_t index = static_cast<uint32_t>(firstTriangle);
        for (size_t s = 0; s < lists.Count(); ++s)
        {
            MStlSurface* surface = target[s];
            std::vector<MStlTriangle*>& list = surface->triangles_;
            const size_t n = lists.Size(s);
            list.reserve(list.size() + n);
            for (size_t i = 0; i < n; ++i, ++t, --room, --left)
            {
                if (room == 0)
                {
                    lists.Consumed(s, i);
                    room = std::min(trianglePiece, left);
                    t = mesh.triangles_.Reserve(room);
                    mesh.triangles_.Commit(room);
                }
                const auto& c = lists.At(s, i);
                new (t) MStlTriangle();
                t->points_[0] = point(c[0]);
                t->points_[1] = point(c[1]);
                t->points_[2] = point(c[2]);
                t->surface_ = surface;
                t->index_ = index++;
                list.push_back(t);
                if (createdTriangles)
                    createdTriangles->push_back(t);
            }
            lists.Consumed(s, n);
        }
        mesh.validity_.InvalidateBoundingBox();
        if (numPoints > 0)
            mesh._NotifyPointsAdded(firstPoint, numPoints);
        if (numTriangles > 0)
            mesh._NotifyTrianglesAdded(firstTriangle, numTriangles);
        return true;
    }
};

std::vector<MStlPoint*> MStlBase::_AppendPointRun(std::vector<std::array<int, 3>>& points,
                                                  std::vector<MStlPoint*>* createdPoints)
{
    VectorPoints given{points};
    return MStlBaseImpl::AppendPoints(*this, given, createdPoints);
}

namespace
{
// One vector of 64-bit triples per list, each freed once used.
struct NestedLists
{
    std::vector<std::vector<std::array<size_t, 3>>>& lists;
    size_t Count() const { return lists.size(); }
    size_t Size(size_t s) const { return lists[s].size(); }
    const std::array<size_t, 3>& At(size_t s, size_t i) const { return lists[s][i]; }
    void Consumed(size_t s, size_t i)
    {
        if (i == lists[s].size())
            lists[s] = std::vector<std::array<size_t, 3>>();
    }
};

// All lists one after another in one vector or block list of 32-bit triples; a block list is
// released block by block, a vector once all is used.
template <typename Triangles> struct FlatLists
{
    Triangles& triangles;
    std::vector<size_t> offsets{0}; // list s runs from offsets[s] to offsets[s + 1]

    // False when the counts do not add up to the triangles given.
    bool Split(const std::vector<size_t>& counts, size_t total)
    {
        offsets.reserve(counts.size() + 1);
        for (size_t count : counts)
        {
            if (count > total - offsets.back())
                return false;
            offsets.push_back(offsets.back() + count);
        }
        return offsets.back() == total;
    }
    size_t Count() const { return offsets.size() - 1; }
    size_t Size(size_t s) const { return offsets[s + 1] - offsets[s]; }
    const std::array<uint32_t, 3>& At(size_t s, size_t i) const { return triangles[offsets[s] + i]; }
    void Consumed(size_t s, size_t i)
    {
        if constexpr (std::is_same<Triangles, MStlBlockList<std::array<uint32_t, 3>>>::value)
            triangles.ReleaseBefore(offsets[s] + i);
        else if (s + 1 == Count() && i == Size(s))
            triangles = Triangles();
    }
};
} // namespace

bool MStlBase::Create(std::vector<std::array<int, 3>> points,
                      std::vector<std::vector<std::array<size_t, 3>>> trianglesPerSurface,
                      const std::vector<MStlSurface*>* surfaces, std::vector<MStlPoint*>* createdPoints,
                      std::vector<MStlTriangle*>* createdTriangles)
{
    VectorPoints given{points};
    NestedLists lists{trianglesPerSurface};
    return MStlBaseImpl::Create(*this, given, lists, surfaces, createdPoints, createdTriangles);
}

bool MStlBase::Create(std::vector<std::array<int, 3>> points, std::vector<std::array<uint32_t, 3>> triangles,
                      const std::vector<size_t>& trianglesPerSurface, const std::vector<MStlSurface*>* surfaces,
                      std::vector<MStlPoint*>* createdPoints, std::vector<MStlTriangle*>* createdTriangles)
{
    FlatLists<std::vector<std::array<uint32_t, 3>>> lists{triangles};
    if (!lists.Split(trianglesPerSurface, triangles.size()))
        return false;
    VectorPoints given{points};
    return MStlBaseImpl::Create(*this, given, lists, surfaces, createdPoints, createdTriangles);
}

bool MStlBase::Create(MStlBlockList<std::array<int, 3>> points, MStlBlockList<std::array<uint32_t, 3>> triangles,
                      const std::vector<size_t>& trianglesPerSurface, const std::vector<MStlSurface*>* surfaces,
                      std::vector<MStlPoint*>* createdPoints, std::vector<MStlTriangle*>* createdTriangles)
{
    FlatLists<MStlBlockList<std::array<uint32_t, 3>>> lists{triangles};
    if (!lists.Split(trianglesPerSurface, triangles.Size()))
        return false;
    BlockPoints given{points};
    return MStlBaseImpl::Create(*this, given, lists, surfaces, createdPoints, createdTriangles);
}

MStlSurface* MStlBase::GetMainSurface() const
{
    return surfaceList_->GetSurface(0);
}

MStlSurface* MStlBase::AddSurface(const MStlSurface* model)
{
    return surfaceList_->AddNewSurface(model);
}

bool MStlBase::MoveTriangleToSurface(MStlTriangle* triangle, MStlSurface* surface)
{
    if (!triangle || !surface || surface->GetStl() != this || triangle->GetStl() != this)
        return false;
    MStlSurface* from = triangle->surface_;
    if (from == surface)
        return true;
    auto& list = from->triangles_;
    auto it = std::find(list.begin(), list.end(), triangle);
    if (it != list.end())
        list.erase(it);
    triangle->surface_ = surface;
    surface->triangles_.push_back(triangle);
    NotifyTrianglesChanged();
    return true;
}

MStlGraphEdge* MStlBase::CreateGraphEdge(MStlPoint* p0, MStlPoint* p1)
{
    if (!p0 || !p1)
        return nullptr;
    MStlGraphEdge* e = edges_.Add(MStlGraphEdge(p0, p1));
    e->index_ = edges_.Size() - 1;
    _NotifyGraphEdgesAdded(e->index_, 1);
    return e;
}

MStlBaseFaceGroupInfo* MStlBase::_CreateFaceGroupInfo()
{
    if (!faceGroups_)
    {
        faceGroups_ = std::make_unique<MStlBaseFaceGroupInfo>(this);
        faceGroups_->Resize(NumberOfTriangles());
    }
    return faceGroups_.get();
}

const KelSDK::Math::boundingbox<int, 3>& MStlBase::GetBoundingBox() const
{
    if (!validity_.IsBoundingBoxValid())
    {
        int e[6];
        boundingBox_ = KelSDK::Math::boundingbox<int, 3>();
        if (properties_.CalculateExtremes(e[0], e[1], e[2], e[3], e[4], e[5]))
            boundingBox_ = KelSDK::Math::boundingbox<int, 3>(KelSDK::Math::point<int, 3>(e[0], e[2], e[4]),
                                                             KelSDK::Math::point<int, 3>(e[1], e[3], e[5]));
        validity_.boundingBoxValid_ = true;
    }
    return boundingBox_;
}

void MStlBase::SetBoundingBox(const KelSDK::Math::boundingbox<int, 3>& box)
{
    boundingBox_ = box;
    validity_.boundingBoxValid_ = true;
}

MStlDependency* MStlBase::FindDependency(const std::string& key) const
{
    auto it = dependencies_.find(key);
    return it == dependencies_.end() ? nullptr : it->second.get();
}

MStlDependency* MStlBase::SetDependency(const std::string& key, std::unique_ptr<MStlDependency> dependency)
{
    if (!dependency)
    {
        RemoveDependency(key);
        return nullptr;
    }
    std::unique_ptr<MStlDependency>& slot = dependencies_[key];
    slot = std::move(dependency);
    return slot.get();
}

bool MStlBase::RemoveDependency(const std::string& key)
{
    auto it = dependencies_.find(key);
    if (it == dependencies_.end())
        return false;
    // Take it out of the map first: its destructor may look the mesh up.
    std::unique_ptr<MStlDependency> gone = std::move(it->second);
    dependencies_.erase(it);
    return true;
}

void MStlBase::NotifyTrianglesChanged()
{
    for (auto& d : dependencies_)
        d.second->OnTrianglesChanged(*this);
}

void MStlBase::_NotifyTrianglesAdded(size_t first, size_t count)
{
    if (faceGroups_)
        faceGroups_->Resize(first + count);
    for (auto& d : dependencies_)
        d.second->OnTrianglesAdded(*this, first, count);
}

void MStlBase::_NotifyPointsAdded(size_t first, size_t count)
{
    for (auto& d : dependencies_)
        d.second->OnPointsAdded(*this, first, count);
}

void MStlBase::_NotifyGraphEdgesAdded(size_t first, size_t count)
{
    for (auto& d : dependencies_)
        d.second->OnGraphEdgesAdded(*this, first, count);
}

void MStlBase::_NotifyTextureRemoved(const MStlTexture* texture)
{
    for (auto& d : dependencies_)
        d.second->OnTextureRemoved(*this, texture);
}

bool MStlBaseProperties::CalculateExtremes(int& xmin, int& xmax, int& ymin, int& ymax, int& zmin,
                                           int& zmax) const
{
    int e[6] = {0, 0, 0, 0, 0, 0};
    bool any = false;
    const MStlHybrid& hybrid = stl_->GetStlHybrid();
    switch (hybrid.GetState())
    {
    case eStlCompact:
        any = hybrid.GetStlCompact()->GetExtremes(e);
        break;
    case eStlOnDisk:
        any = hybrid.GetStlOnDisk()->GetExtremes(e);
        break;
    default:
        for (const MStlPoint& p : stl_->Points())
        {
            if (!any)
            {
                e[0] = e[1] = p.GetX();
                e[2] = e[3] = p.GetY();
                e[4] = e[5] = p.GetZ();
                any = true;
                continue;
            }
            e[0] = std::min(e[0], p.GetX());
            e[1] = std::max(e[1], p.GetX());
            e[2] = std::min(e[2], p.GetY());
            e[3] = std::max(e[3], p.GetY());
            e[4] = std::min(e[4], p.GetZ());
            e[5] = std::max(e[5], p.GetZ());
        }
        break;
    }
    xmin = e[0];
    xmax = e[1];
    ymin = e[2];
    ymax = e[3];
    zmin = e[4];
    zmax = e[5];
    return any;
}
} // namespace KelSDK::Triangles::Data
