#include "MStlFileTriangleBinary.h"

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Math/Transform.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>

#include <cmath>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
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

// Binary facets without a write transformation are encoded straight into a block of this many
// 50-byte records, which goes to the file in one write.
constexpr size_t FacetsPerBlock = 4096;
// The normals of this many records are finished together (a divisor of FacetsPerBlock).
constexpr size_t NormalBatch = 64;

inline bool SamePosition(const MStlPoint& a, const MStlPoint& b)
{
    return &a == &b || (a.GetX() == b.GetX() && a.GetY() == b.GetY() && a.GetZ() == b.GetZ());
}

// Facet records of a binary file, collected block by block. The caller encodes the corners and
// the attribute word of a record at Next() and hands over the unnormalised normal with Commit.
// The normals are divided by their lengths a batch at a time: in one loop of independent square
// roots and divisions the processor overlaps them, where facet by facet each waited for its own.
// Each full block, and the rest on Finish, goes to the file in one write; count grows by the
// records of each block written.
//
// With a background writer, a thread of its own writes the full blocks while the caller encodes
// the next ones into the other slots of a small ring, so the copy into the page cache no longer
// adds to the encoding time. Only that thread touches the file until Finish (or the destructor,
// when an exception leaves the caller) has joined it.
class BinaryFacetBlocks
{
public:
    BinaryFacetBlocks(MFile& file, uint32_t& count, bool background)
        : file_(file), count_(count), bytes_(new unsigned char[(background ? RingSlots : 1) * SlotBytes])
    {
        if (background)
        {
            try
            {
                writer_ = std::thread([this] { _WriteInBackground(); });
            }
            catch (const std::system_error&)
            {
                // No thread to be had: the blocks are written in line, in the first slot.
            }
        }
    }
    ~BinaryFacetBlocks() { _StopWriter(); }
    BinaryFacetBlocks(const BinaryFacetBlocks&) = delete;
    BinaryFacetBlocks& operator=(const BinaryFacetBlocks&) = delete;

    // The 50 bytes of the next record.
    unsigned char* Next() { return _Slot(filled_) + used_ * MStlFileTriangle::BINARY_SIZE; }
    // Takes the record at Next() with the cross product n of its edges; false once a block could
    // not be written.
    bool Commit(const double (&n)[3])
    {
        const size_t slot = used_ % NormalBatch;
        normals_[slot][0] = n[0];
        normals_[slot][1] = n[1];
        normals_[slot][2] = n[2];
        ++used_;
        if (slot + 1 == NormalBatch)
            _FinishNormals(NormalBatch);
        return used_ < FacetsPerBlock || _HandOver();
    }
    // Writes the records still pending and waits for the background writer; false when the file
    // reports an error.
    bool Finish()
    {
        if (used_ % NormalBatch != 0)
            _FinishNormals(used_ % NormalBatch);
        const bool handed = used_ == 0 || _HandOver();
        _StopWriter();
        return handed && !failed_ && file_.GetStatus() == 0;
    }

private:
    static constexpr size_t SlotBytes = FacetsPerBlock * MStlFileTriangle::BINARY_SIZE;
    // Three slots: one being written, one full and waiting, one being encoded.
    static constexpr size_t RingSlots = 3;

    unsigned char* _Slot(size_t block)
    {
        return bytes_.get() + (writer_.joinable() ? block % RingSlots : 0) * SlotBytes;
    }

    // The unit normals of the last pending records, narrowed to float: the same operations as
    // MStlTriangle::GetNormal (the zero vector for a triangle without area).
    void _FinishNormals(size_t pending)
    {
        unsigned char* record = Next() - pending * MStlFileTriangle::BINARY_SIZE;
        for (size_t i = 0; i < pending; ++i, record += MStlFileTriangle::BINARY_SIZE)
        {
            const double* n = normals_[i];
            const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
            float unit[3] = {0.0f, 0.0f, 0.0f};
            if (length != 0.0)
            {
                unit[0] = static_cast<float>(n[0] / length);
                unit[1] = static_cast<float>(n[1] / length);
                unit[2] = static_cast<float>(n[2] / length);
            }
            Detail::StoreF32(record, unit[0]);
            Detail::StoreF32(record + 4, unit[1]);
            Detail::StoreF32(record + 8, unit[2]);
        }
    }

    // The block being encoded is complete: written now, or queued for the writer thread once a
    // slot is free for the next one.
    bool _HandOver()
    {
        const size_t records = used_;
        used_ = 0;
        if (!writer_.joinable())
        {
            if (!_WriteBlock(bytes_.get(), records))
                failed_ = true;
            return !failed_;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        records_[filled_ % RingSlots] = records;
        ++filled_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return failed_ || filled_ - written_ < RingSlots; });
        return !failed_;
    }

    bool _WriteBlock(const unsigned char* bytes, size_t records)
    {
        const bool ok = file_.WRITE(bytes, records * MStlFileTriangle::BINARY_SIZE) && file_.GetStatus() == 0;
        if (ok)
            count_ += static_cast<uint32_t>(records);
        return ok;
    }

    // The writer thread: writes queued blocks in order until told to stop with none left, or
    // until a write fails.
    void _WriteInBackground()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;)
        {
            changed_.wait(lock, [this] { return stop_ || written_ < filled_; });
            if (written_ == filled_)
                return;
            const size_t slot = written_ % RingSlots;
            const size_t records = records_[slot];
            lock.unlock();
            const bool ok = _WriteBlock(bytes_.get() + slot * SlotBytes, records);
            lock.lock();
            ++written_;
            if (!ok)
                failed_ = true;
            changed_.notify_all();
            if (!ok)
                return;
        }
    }

    void _StopWriter()
    {
        if (!writer_.joinable())
            return;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
        writer_.join();
    }

    MFile& file_;
    uint32_t& count_;
    std::unique_ptr<unsigned char[]> bytes_;
    size_t used_ = 0;
    double normals_[NormalBatch][3] = {};
    std::thread writer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Blocks handed over and blocks written so far; slot i of the ring holds block i % RingSlots.
    size_t filled_ = 0;
    size_t written_ = 0;
    size_t records_[RingSlots] = {};
    bool stop_ = false;
    bool failed_ = false;
};

// The corners and attribute word of a binary record (bytes 12 to 49; the normal is the block's)
// of a triangle of the Standard kind without a write transformation, narrowed exactly as
// corner * scale would be. n receives the cross product of (p1 - p0) and (p2 - p0), the same
// expressions as the mesh model's GetNormal, so that the stored normal is float(GetNormal()).
inline void EncodeCorners(const MStlPoint& p0, const MStlPoint& p1, const MStlPoint& p2, double scale,
                          uint16_t attribute, unsigned char* bytes, double (&n)[3])
{
    const double ax = double(p1.GetX()) - p0.GetX(), ay = double(p1.GetY()) - p0.GetY(),
                 az = double(p1.GetZ()) - p0.GetZ();
    const double bx = double(p2.GetX()) - p0.GetX(), by = double(p2.GetY()) - p0.GetY(),
                 bz = double(p2.GetZ()) - p0.GetZ();
    n[0] = ay * bz - az * by;
    n[1] = az * bx - ax * bz;
    n[2] = ax * by - ay * bx;
    const MStlPoint* corners[3] = {&p0, &p1, &p2};
    for (int k = 0; k < 3; ++k)
    {
        unsigned char* q = bytes + 12 + 12 * k;
        Detail::StoreF32(q, static_cast<float>(double(corners[k]->GetX()) * scale));
        Detail::StoreF32(q + 4, static_cast<float>(double(corners[k]->GetY()) * scale));
        Detail::StoreF32(q + 8, static_cast<float>(double(corners[k]->GetZ()) * scale));
    }
    bytes[48] = static_cast<unsigned char>(attribute & 0xFF);
    bytes[49] = static_cast<unsigned char>(attribute >> 8);
}

inline void PrefetchTriangle(const MStlTriangle* triangle)
{
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(triangle);
#else
    (void)triangle;
#endif
}
} // namespace

MStlFileWriter::MStlFileWriter(const MStlWriteOptions& options) : options_(options) {}

MStlFileWriter::~MStlFileWriter()
{
    // Still writing means an exception (from the progress delegate) left Write: the half-written
    // file is dropped and the target keeps what it had.
    if (writing_ && file_)
    {
        file_->Abandon();
        file_.reset();
    }
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
    writing_ = true;
    const bool ok =
        static_cast<int>(mesh_->GetStlHybrid().GetState()) == 0 ? _WriteStandard(progress) : _WriteHybrid();
    writing_ = false;
    return ok;
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
    if (options_.binary && !transformation_)
        return _WriteBinaryBlocks(reporter);
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

// Binary file without a write transformation: the triangles of every surface, in surface order,
// encoded block by block. Collapsed triangles count as progress but are not written.
bool MStlFileWriter::_WriteBinaryBlocks(KelSDK::Common::IncrementalProgressReporter& reporter)
{
    // Below a few blocks the file is written before a thread would have started.
    BinaryFacetBlocks block(*file_, facetCount_, mesh_->NumberOfTriangles() > 4 * FacetsPerBlock);
    const double scale = options_.scale;
    const bool withColors = options_.withColors;
    // A triangle without a colour of its own shows the mesh colour; it is written explicitly
    // unless it is what the header colour already says.
    const uint32_t headerColor = material_ != nullptr ? (material_->GetRGB() & 0xFFFFFFu) : 0u;
    const uint32_t meshColor = mesh_->GetRGB();
    MStlIteratorFeatureSurfaceConst it(*mesh_);
    for (it.Begin(); !it.End(); ++it)
    {
        const std::vector<MStlTriangle*>& triangles = (*it).Triangles();
        const size_t count = triangles.size();
        for (size_t t = 0; t < PrefetchDistance && t < count; ++t)
            PrefetchCorners(*triangles[t]);
        for (size_t t = 0; t < count; ++t)
        {
            // The triangle record itself is fetched twice as far ahead, so that reading its corner
            // pointers for the prefetch does not wait.
            if (t + 2 * PrefetchDistance < count)
                PrefetchTriangle(triangles[t + 2 * PrefetchDistance]);
            if (t + PrefetchDistance < count)
                PrefetchCorners(*triangles[t + PrefetchDistance]);
            ++reporter;
            const MStlTriangle& triangle = *triangles[t];
            const MStlPoint& p0 = *triangle.GetPoint0();
            const MStlPoint& p1 = *triangle.GetPoint1();
            const MStlPoint& p2 = *triangle.GetPoint2();
            if (SamePosition(p0, p1) || SamePosition(p1, p2) || SamePosition(p0, p2))
                continue;
            uint16_t attribute = 0;
            if (withColors)
            {
                MStlColor color = triangle.GetColor();
                if (!color.IsDefined() && meshColor != headerColor)
                    color.SetRGB(meshColor);
                attribute = MStlColor::ConvertTo16BitValue(color);
            }
            double n[3];
            EncodeCorners(p0, p1, p2, scale, attribute, block.Next(), n);
            if (!block.Commit(n))
                return false;
        }
    }
    return block.Finish();
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
