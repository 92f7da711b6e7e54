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
    index_ = std::vector<MStlPoint*>();
    sortedCount_ = 0;
}

void MStlPointList::EnableSorting(bool assumeSorted, bool buildNow)
{
    sortingEnabled_ = true;
    if (indexBuilt_ && sortedCount_ == index_.size() && index_.size() == count_)
        return;
    indexBuilt_ = false;
    if (buildNow)
        _RebuildIndex(assumeSorted);
}

void MStlPointList::_RebuildIndex(bool assumeSorted) const
{
    index_.clear();
    index_.reserve(count_);
    for (MStlPoint* p = first_; p; p = p->next_)
        index_.push_back(p);
    if (!assumeSorted || !std::is_sorted(index_.begin(), index_.end(), LessZXY()))
        tbb::parallel_sort(index_.begin(), index_.end(), LessZXY());
    sortedCount_ = index_.size();
    indexBuilt_ = true;
}

void MStlPointList::_MergePending() const
{
    if (sortedCount_ == index_.size())
        return;
    const auto middle = index_.begin() + static_cast<std::ptrdiff_t>(sortedCount_);
    tbb::parallel_sort(middle, index_.end(), LessZXY());
    std::inplace_merge(index_.begin(), middle, index_.end(), LessZXY());
    sortedCount_ = index_.size();
}

void MStlPointList::_IndexNewPoints(MStlPoint* first, size_t count, bool sortedRun)
{
    if (!sortingEnabled_ || !indexBuilt_ || count == 0)
        return;
    const bool extendsSorted = sortedRun && sortedCount_ == index_.size() &&
                               (sortedCount_ == 0 || !MStlPoint::LessZXY(*first, *index_[sortedCount_ - 1]));
    if (index_.capacity() - index_.size() < count)
        index_.reserve(std::max(index_.size() + count, 2 * index_.capacity()));
    MStlPoint* p = first;
    for (size_t i = 0; i < count; ++i, p = p->next_)
        index_.push_back(p);
    if (extendsSorted)
        sortedCount_ = index_.size();
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
    index_ = std::vector<MStlPoint*>();
    sortedCount_ = 0;
    indexBuilt_ = sortingEnabled_;
}

MStlPoint* MStlPointList::FindPoint(int x, int y, int z) const
{
    if (!sortingEnabled_)
        return nullptr;
    if (!indexBuilt_)
        _RebuildIndex(false);
    _MergePending();
    const MStlPoint key(x, y, z);
    auto it = std::lower_bound(index_.begin(), index_.end(), &key, LessZXY());
    if (it == index_.end() || (*it)->GetX() != x || (*it)->GetY() != y || (*it)->GetZ() != z)
        return nullptr;
    return *it;
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
