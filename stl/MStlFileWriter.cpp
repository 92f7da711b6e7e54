#include "MStlFileTriangleBinary.h"

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Math/Transform.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/MStlFileWriter.h>

#include <tbb/parallel_for.h>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstring>
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

// Binary facets without a write transformation are encoded straight into 50-byte records, a
// chunk of triangles at a time; a chunk never spans two surfaces.
constexpr size_t ChunkFacets = 2048;
// A slot holds this many chunks; they are encoded side by side on the available cores.
constexpr size_t ChunksPerSlot = 16;
// The normals of this many records are finished together.
constexpr size_t NormalBatch = 64;

inline bool SamePosition(const MStlPoint& a, const MStlPoint& b)
{
    return &a == &b || (a.GetX() == b.GetX() && a.GetY() == b.GetY() && a.GetZ() == b.GetZ());
}

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

// What every binary record of one export shares.
struct FacetEncoding
{
    double scale;
    bool withColors;
    // A triangle without a colour of its own shows the mesh colour; it is written explicitly
    // unless it is what the header colour already says.
    uint32_t headerColor;
    uint32_t meshColor;
};

// Cross products of the edges of a batch of records, component by component.
struct NormalBatchBuffer
{
    alignas(16) double x[NormalBatch];
    alignas(16) double y[NormalBatch];
    alignas(16) double z[NormalBatch];
};

// The unit normals of count records starting at records, from the cross products of their edges,
// narrowed to float: the same operations as MStlTriangle::GetNormal (the zero vector for a
// triangle without area). Done a batch at a time, the independent square roots and divisions
// overlap in the processor (two at a time in SSE2 registers), where facet by facet each waited
// for its own. SSE2 rounds every operation as the scalar code does, so the bytes are the same.
void FinishNormals(unsigned char* records, NormalBatchBuffer& n, size_t count)
{
    alignas(16) float unit[3][NormalBatch];
    size_t i = 0;
#if defined(__SSE2__) || defined(_M_X64)
    const __m128d zero = _mm_setzero_pd();
    const __m128d one = _mm_set1_pd(1.0);
    for (; i + 2 <= count; i += 2)
    {
        const __m128d x = _mm_load_pd(n.x + i), y = _mm_load_pd(n.y + i), z = _mm_load_pd(n.z + i);
        const __m128d length =
            _mm_sqrt_pd(_mm_add_pd(_mm_add_pd(_mm_mul_pd(x, x), _mm_mul_pd(y, y)), _mm_mul_pd(z, z)));
        // Lanes of zero length divide by one and are cleared to +0 afterwards.
        const __m128d area = _mm_cmpneq_pd(length, zero);
        const __m128d divisor = _mm_or_pd(_mm_and_pd(area, length), _mm_andnot_pd(area, one));
        const __m128 ux = _mm_cvtpd_ps(_mm_and_pd(area, _mm_div_pd(x, divisor)));
        const __m128 uy = _mm_cvtpd_ps(_mm_and_pd(area, _mm_div_pd(y, divisor)));
        const __m128 uz = _mm_cvtpd_ps(_mm_and_pd(area, _mm_div_pd(z, divisor)));
        _mm_storel_pi(reinterpret_cast<__m64*>(unit[0] + i), ux);
        _mm_storel_pi(reinterpret_cast<__m64*>(unit[1] + i), uy);
        _mm_storel_pi(reinterpret_cast<__m64*>(unit[2] + i), uz);
    }
#endif
    for (; i < count; ++i)
    {
        const double length = std::sqrt(n.x[i] * n.x[i] + n.y[i] * n.y[i] + n.z[i] * n.z[i]);
        const bool area = length != 0.0;
        unit[0][i] = area ? static_cast<float>(n.x[i] / length) : 0.0f;
        unit[1][i] = area ? static_cast<float>(n.y[i] / length) : 0.0f;
        unit[2][i] = area ? static_cast<float>(n.z[i] / length) : 0.0f;
    }
    for (i = 0; i < count; ++i, records += MStlFileTriangle::BINARY_SIZE)
    {
        Detail::StoreF32(records, unit[0][i]);
        Detail::StoreF32(records + 4, unit[1][i]);
        Detail::StoreF32(records + 8, unit[2][i]);
    }
}

// Encodes count triangles into consecutive records at out, leaving out the collapsed ones;
// returns the number of records.
size_t EncodeChunk(const MStlTriangle* const* triangles, size_t count, const FacetEncoding& encoding,
                   unsigned char* out)
{
    NormalBatchBuffer normals;
    size_t pending = 0;
    size_t records = 0;
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
        const MStlTriangle& triangle = *triangles[t];
        const MStlPoint& p0 = *triangle.GetPoint0();
        const MStlPoint& p1 = *triangle.GetPoint1();
        const MStlPoint& p2 = *triangle.GetPoint2();
        if (SamePosition(p0, p1) || SamePosition(p1, p2) || SamePosition(p0, p2))
            continue;
        uint16_t attribute = 0;
        if (encoding.withColors)
        {
            MStlColor color = triangle.GetColor();
            if (!color.IsDefined() && encoding.meshColor != encoding.headerColor)
                color.SetRGB(encoding.meshColor);
            attribute = MStlColor::ConvertTo16BitValue(color);
        }
        double n[3];
        EncodeCorners(p0, p1, p2, encoding.scale, attribute, out + records * MStlFileTriangle::BINARY_SIZE,
                      n);
        normals.x[pending] = n[0];
        normals.y[pending] = n[1];
        normals.z[pending] = n[2];
        ++records;
        if (++pending == NormalBatch)
        {
            FinishNormals(out + (records - pending) * MStlFileTriangle::BINARY_SIZE, normals, pending);
            pending = 0;
        }
    }
    FinishNormals(out + (records - pending) * MStlFileTriangle::BINARY_SIZE, normals, pending);
    return records;
}

// The binary records of an export, collected chunk by chunk into slots. A full slot has its
// chunks encoded side by side (on the cores TBB has), and is then written in chunk order.
//
// With a background writer, a thread of its own writes full slots while the caller fills the
// next ones in a small ring, so the copy into the page cache no longer adds to the encoding
// time. Only that thread touches the file until Finish (or the destructor, when an exception
// leaves the caller) has joined it. count grows by the records of every slot written.
class BinaryFacetSlots
{
public:
    // parallel: slots are encoded on TBB's threads, and (with background) written by a thread of
    // their own; otherwise everything runs on the caller's thread.
    BinaryFacetSlots(MFile& file, uint32_t& count, const FacetEncoding& encoding, bool parallel,
                     bool background)
        : file_(file), count_(count), encoding_(encoding), parallel_(parallel),
          background_(parallel && background),
          bytes_(new unsigned char[(background_ ? RingSlots : 1) * SlotBytes])
    {
        if (background_)
        {
            try
            {
                writer_ = std::thread([this] { _WriteInBackground(); });
            }
            catch (const std::system_error&)
            {
                // No thread to be had: every slot is written in line, from the first place.
                background_ = false;
            }
        }
    }
    ~BinaryFacetSlots() { _StopWriter(); }
    BinaryFacetSlots(const BinaryFacetSlots&) = delete;
    BinaryFacetSlots& operator=(const BinaryFacetSlots&) = delete;

    // Queues up to ChunkFacets triangles; false once a write failed.
    bool Add(const MStlTriangle* const* triangles, size_t count)
    {
        Slot& slot = slots_[_Place(filled_)];
        slot.triangles[slot.chunks] = triangles;
        slot.counts[slot.chunks] = count;
        return ++slot.chunks < ChunksPerSlot || _Complete();
    }
    // Encodes and writes what is queued and waits for the background writer; false when the file
    // reports an error.
    bool Finish()
    {
        const bool completed = slots_[_Place(filled_)].chunks == 0 || _Complete();
        _StopWriter();
        return completed && !failed_ && file_.GetStatus() == 0;
    }

private:
    static constexpr size_t ChunkBytes = ChunkFacets * MStlFileTriangle::BINARY_SIZE;
    static constexpr size_t SlotBytes = ChunksPerSlot * ChunkBytes;
    // Three slots: one being written, one full and waiting, one being filled.
    static constexpr size_t RingSlots = 3;

    struct Slot
    {
        size_t chunks = 0;
        const MStlTriangle* const* triangles[ChunksPerSlot] = {};
        size_t counts[ChunksPerSlot] = {};
        size_t records[ChunksPerSlot] = {};
        // Records of all chunks, in one run from the start of the slot.
        size_t total = 0;
    };

    size_t _Place(size_t slot) const { return background_ ? slot % RingSlots : 0; }
    unsigned char* _Chunk(size_t place, size_t chunk)
    {
        return bytes_.get() + place * SlotBytes + chunk * ChunkBytes;
    }

    // The slot being filled is complete: encoded, then written now or queued for the writer
    // thread once a place is free for the next one.
    bool _Complete()
    {
        const size_t place = _Place(filled_);
        Slot& slot = slots_[place];
        const auto encode = [&](size_t c)
        { slot.records[c] = EncodeChunk(slot.triangles[c], slot.counts[c], encoding_, _Chunk(place, c)); };
        if (parallel_ && slot.chunks > 1)
            tbb::parallel_for(size_t(0), slot.chunks, encode);
        else
            for (size_t c = 0; c < slot.chunks; ++c)
                encode(c);
        // A chunk with collapsed triangles left a gap before the next: the records are moved up
        // to one run, so that the slot goes to the file in one write.
        slot.total = 0;
        for (size_t c = 0; c < slot.chunks; ++c)
        {
            unsigned char* run = _Chunk(place, 0) + slot.total * MStlFileTriangle::BINARY_SIZE;
            if (run != _Chunk(place, c))
                std::memmove(run, _Chunk(place, c), slot.records[c] * MStlFileTriangle::BINARY_SIZE);
            slot.total += slot.records[c];
        }
        if (!background_)
        {
            failed_ = failed_ || !_WriteSlot(place);
            slot.chunks = 0;
            return !failed_;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        ++filled_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return failed_ || filled_ - written_ < RingSlots; });
        return !failed_;
    }

    bool _WriteSlot(size_t place)
    {
        const size_t records = slots_[place].total;
        if (!file_.WRITE(_Chunk(place, 0), records * MStlFileTriangle::BINARY_SIZE) || file_.GetStatus() != 0)
            return false;
        count_ += static_cast<uint32_t>(records);
        return true;
    }

    // The writer thread: writes queued slots in order until told to stop with none left, or
    // until a write fails.
    void _WriteInBackground()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;)
        {
            changed_.wait(lock, [this] { return stop_ || written_ < filled_; });
            if (written_ == filled_)
                return;
            const size_t place = _Place(written_);
            lock.unlock();
            const bool ok = _WriteSlot(place);
            slots_[place].chunks = 0;
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
    const FacetEncoding encoding_;
    const bool parallel_;
    bool background_;
    std::unique_ptr<unsigned char[]> bytes_;
    Slot slots_[RingSlots];
    std::thread writer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Slots completed and slots written so far; slot i lies at place _Place(i).
    size_t filled_ = 0;
    size_t written_ = 0;
    bool stop_ = false;
    bool failed_ = false;
};
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
    systemError_ = file_->GetSystemError();
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
// encoded chunk by chunk. Collapsed triangles count as progress but are not written.
bool MStlFileWriter::_WriteBinaryBlocks(KelSDK::Common::IncrementalProgressReporter& reporter)
{
    const FacetEncoding encoding = {options_.scale, options_.withColors,
                                    material_ != nullptr ? (material_->GetRGB() & 0xFFFFFFu) : 0u,
                                    mesh_->GetRGB()};
    // Below two slots the file is written before threads would have started.
    BinaryFacetSlots slots(*file_, facetCount_, encoding, parallel_,
                           mesh_->NumberOfTriangles() > 2 * ChunksPerSlot * ChunkFacets);
    MStlIteratorFeatureSurfaceConst it(*mesh_);
    for (it.Begin(); !it.End(); ++it)
    {
        const std::vector<MStlTriangle*>& triangles = (*it).Triangles();
        for (size_t first = 0; first < triangles.size(); first += ChunkFacets)
        {
            const size_t count = std::min(ChunkFacets, triangles.size() - first);
            if (!slots.Add(triangles.data() + first, count))
                return false;
            reporter += count;
        }
    }
    return slots.Finish();
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
    systemError_ = file_->GetSystemError();
    file_.reset();
    state_ = StateClosed;
    return ok;
}
} // namespace KelSDK::Triangles::IO
