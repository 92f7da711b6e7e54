// Per-element data masks: one value per element index (triangle colours of the Compact kind and
// other per-element attributes), and the colour masks of a mesh.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MStlColor.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlTriangle;
class MStlPoint;

// Untyped base so that masks of different types can be held together.
class KELSDK_TRIANGLES_DATA_EXPORT MDataMaskBase
{
public:
    virtual ~MDataMaskBase();
    // Number of element slots currently held.
    virtual size_t GetSize() const = 0;
    // Drops every value.
    virtual void Clear() = 0;
};

// One Info per element index of Element (the index the storage gives the element). Indices never
// set read as the default value.
template <typename Element, typename Info> class MDataMask : public MDataMaskBase
{
public:
    explicit MDataMask(const Info& defaultValue = Info()) : default_(defaultValue) {}

    // Stores the value of one element, growing the mask to index + 1 slots when needed.
    void SetInfo(size_t index, const Info& info)
    {
        if (index >= values_.size())
            values_.resize(index + 1, default_);
        values_[index] = info;
    }
    // The value of one element, or the default value when it was never set.
    const Info& GetInfo(size_t index) const { return index < values_.size() ? values_[index] : default_; }
    const Info& GetDefault() const { return default_; }
    void SetDefault(const Info& value) { default_ = value; }
    // Sets the number of slots (new ones take the default value).
    void Resize(size_t size) { values_.resize(size, default_); }
    size_t GetSize() const override { return values_.size(); }
    void Clear() override { values_.clear(); }
    const std::vector<Info>& Values() const { return values_; }
    // The stored values, for filling in bulk.
    std::vector<Info>& Values() { return values_; }

private:
    Info default_;
    std::vector<Info> values_;
};

using MStlTriangleColorMask = MDataMask<MStlTriangle, MStlColor>;
using MStlPointColorMask = MDataMask<MStlPoint, MStlColor>;

// The colour masks of a mesh: per-triangle and per-vertex colours by storage index. The Standard
// kind keeps triangle colours on the triangles themselves; the masks serve the other kinds and
// any extra colouring.
class KELSDK_TRIANGLES_DATA_EXPORT MStlColorMasks
{
public:
    MStlColorMasks();
    ~MStlColorMasks();
    MStlColorMasks(const MStlColorMasks&) = delete;
    MStlColorMasks& operator=(const MStlColorMasks&) = delete;

    // The triangle colour mask, or null when it has not been created.
    MStlTriangleColorMask* GetMainTriangleColorMask() const { return triangleColors_.get(); }
    // Creates the triangle colour mask (undefined colours) unless it exists; returns it.
    MStlTriangleColorMask* CreateMainTriangleColorMask();
    void DeleteMainTriangleColorMask() { triangleColors_.reset(); }

    // The vertex colour mask, or null when it has not been created.
    MStlPointColorMask* GetMainPointColorMask() const { return pointColors_.get(); }
    // Creates the vertex colour mask unless it exists; returns it.
    MStlPointColorMask* CreateMainPointColorMask();
    void DeleteMainPointColorMask() { pointColors_.reset(); }

    // Deletes every mask.
    void Clear();

private:
    std::unique_ptr<MStlTriangleColorMask> triangleColors_;
    std::unique_ptr<MStlPointColorMask> pointColors_;
};
} // namespace KelSDK::Triangles::Data
