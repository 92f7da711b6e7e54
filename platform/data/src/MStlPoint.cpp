#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlPoint.h>

#include <tbb/parallel_sort.h>

#include <algorithm>

namespace KelSDK::Triangles::Data
{
namespace
{
struct LessZXY
{
    bool operator()(const MStlPoint* a, const MStlPoint* b) const { return MStlPoint::LessZXY(*a, *b); }
};
} // namespace

void MStlPoint::Get(double* xyz) const
{
    xyz[0] = x_;
    xyz[1] = y_;
    xyz[2] = z_;
}

void MStlPoint::Get(int* xyz) const
{
    xyz[0] = x_;
    xyz[1] = y_;
    xyz[2] = z_;
}

bool MStlPoint::IsUserDefined(bool anyUserFlag) const
{
    if (flags_ & FlagUserDefined)
        return true;
    return anyUserFlag && (flags_ & ~(FlagFirstUserBit - 1u)) != 0;
}

void MStlPoint::SetUserDefined(bool userDefined)
{
    if (userDefined)
        flags_ |= FlagUserDefined;
    else
        flags_ &= ~FlagUserDefined;
}

void MStlPointList::DisableSorting()
{
    sortingEnabled_ = false;
    indexBuilt_ = false;
    runs_ = {};
    fresh_ = {};
}

void MStlPointList::EnableSorting(bool assumeSorted, bool buildNow)
{
    sortingEnabled_ = true;
    if (indexBuilt_)
        return;
    if (buildNow)
        _RebuildIndex(assumeSorted);
}

void MStlPointList::_RebuildIndex(bool assumeSorted) const
{
    std::vector<MStlPoint*> all;
    all.reserve(count_);
    for (MStlPoint* p = first_; p; p = p->next_)
        all.push_back(p);
    if (!assumeSorted || !std::is_sorted(all.begin(), all.end(), LessZXY()))
        tbb::parallel_sort(all.begin(), all.end(), LessZXY());
    runs_.clear();
    fresh_.clear();
    if (!all.empty())
        runs_.push_back(std::move(all));
    indexBuilt_ = true;
}

void MStlPointList::_AddRun(std::vector<MStlPoint*> run) const
{
    if (run.empty())
        return;
    // A run that continues the last one (the usual case for sorted bulk input) is appended.
    if (!runs_.empty() && !MStlPoint::LessZXY(*run.front(), *runs_.back().back()))
        runs_.back().insert(runs_.back().end(), run.begin(), run.end());
    else
        runs_.push_back(std::move(run));
    // Merge while a run is not at least twice the size of the one after it.
    while (runs_.size() >= 2 && runs_[runs_.size() - 2].size() <= 2 * runs_.back().size())
    {
        std::vector<MStlPoint*>& a = runs_[runs_.size() - 2];
        std::vector<MStlPoint*>& b = runs_.back();
        std::vector<MStlPoint*> merged(a.size() + b.size());
        std::merge(a.begin(), a.end(), b.begin(), b.end(), merged.begin(), LessZXY());
        runs_.pop_back();
        runs_.back() = std::move(merged);
    }
}

void MStlPointList::_IndexNewPoints(MStlPoint* first, size_t count, bool sortedRun)
{
    constexpr size_t FreshLimit = 64;
    if (!sortingEnabled_ || !indexBuilt_ || count == 0)
        return;
    if (count < FreshLimit)
    {
        MStlPoint* p = first;
        for (size_t i = 0; i < count; ++i, p = p->next_)
            fresh_.push_back(p);
        if (fresh_.size() >= FreshLimit)
        {
            std::sort(fresh_.begin(), fresh_.end(), LessZXY());
            _AddRun(std::move(fresh_));
            fresh_ = {};
        }
        return;
    }
    std::vector<MStlPoint*> run(count);
    MStlPoint* p = first;
    for (size_t i = 0; i < count; ++i, p = p->next_)
        run[i] = p;
    if (!sortedRun)
        tbb::parallel_sort(run.begin(), run.end(), LessZXY());
    _AddRun(std::move(run));
}

void MStlPointList::_Append(MStlPoint* first, MStlPoint* last, size_t count)
{
    if (count == 0)
        return;
    last->next_ = nullptr;
    if (last_)
        last_->next_ = first;
    else
        first_ = first;
    last_ = last;
    count_ += count;
}

void MStlPointList::_Clear()
{
    first_ = last_ = nullptr;
    count_ = 0;
    runs_ = {};
    fresh_ = {};
    indexBuilt_ = sortingEnabled_;
}

MStlPoint* MStlPointList::FindPoint(int x, int y, int z) const
{
    if (!sortingEnabled_)
        return nullptr;
    if (!indexBuilt_)
        _RebuildIndex(false);
    for (MStlPoint* p : fresh_)
        if (p->GetX() == x && p->GetY() == y && p->GetZ() == z)
            return p;
    const MStlPoint key(x, y, z);
    for (const std::vector<MStlPoint*>& run : runs_)
    {
        auto it = std::lower_bound(run.begin(), run.end(), &key, LessZXY());
        if (it != run.end() && (*it)->GetX() == x && (*it)->GetY() == y && (*it)->GetZ() == z)
            return *it;
    }
    return nullptr;
}

size_t MStlPointList::GetIndexOfPoint(const MStlPoint* point) const
{
    return owner_.points_.IndexOf(point);
}

MStlPoint* MStlPointList::GetPointWithIndex(size_t index) const
{
    return owner_.points_.At(index);
}
} // namespace KelSDK::Triangles::Data
