// The native mesh format container: header, info block, properties, the mesh base section with
// its fixed sequence of inner sections, the colour, mark and visibility sections, the plug-in
// block, error texts and progress.
//
// File layout, from the first byte (every multi-byte value little-endian):
//   u8 0 | string "KelvinstoneStlFormat_Version_06_00" (u32 byte count + bytes) | u8 1
//   info block: 10 bytes (colours, curves, mesh present, masks, points, registered points,
//               history, triangle marks, triangle visibilities, triangles)
//   properties: bool support, bool supposed solid, 6 x i32 extremes (x min, x max, y min,
//               y max, z min, z max), u8 coordinate width, u64 vertex count, u8 vertex index
//               width, u64 triangle count, u8 triangle index width
//   mesh base section: u8 2 ... u8 3
//   registered points section (switch), masks section (switch), face group section
//   plug-in block: u8 194, u32 count, per section: wide name (u32 UTF-16 unit count + units),
//                  u32 absolute end position, payload; u8 195
#include "../plugins/BuiltinPlugins.h"
#include "NativeSections.h"

#include <KelSDK/Common/Progress.h>
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

#include <algorithm>
#include <cstring>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;
using KelSDK::Common::IncrementalProgressReporter;
using KelSDK::Common::IProgressDelegate;

namespace
{
constexpr uint64_t kStepsPerReport = 8192;

const char* const kKindNames[3] = {"Standard", "Compact", "OnDisk"};

// Bytes needed for values up to the given maximum: 1 below 256, 2 below 65536, 3 below 2^24, else 4.
unsigned char WidthForExtent(uint64_t extent)
{
    if (extent < 0x100u)
        return 1;
    if (extent < 0x10000u)
        return 2;
    if (extent < 0x1000000u)
        return 3;
    return 4;
}
} // namespace

MStlFileIO::MStlFileIO() : maps_(std::make_unique<MReferenceMaps>())
{
    EnsureBuiltinPlugins();
}

MStlFileIO::~MStlFileIO() = default;

void MStlFileIO::SetStl(MStlBase* mesh)
{
    mesh_ = mesh;
}

void MStlFileIO::SetFile(MFile& file)
{
    file_ = &file;
}

MStlFileIO::MFile* MStlFileIO::GetFile() const
{
    return file_;
}

void MStlFileIO::SetSaveColors(bool on)
{
    saveColors_ = on;
}
void MStlFileIO::SetSaveCurves(bool on)
{
    saveCurves_ = on;
}
void MStlFileIO::SetSaveMasks(bool on)
{
    saveMasks_ = on;
}
void MStlFileIO::SetSavePoints(bool on)
{
    savePoints_ = on;
}
void MStlFileIO::SetSaveRegisteredPoints(bool on)
{
    saveRegisteredPoints_ = on;
}
void MStlFileIO::SetSaveStlHistory(bool on)
{
    saveHistory_ = on;
}
void MStlFileIO::SetSaveTriangleMarks(bool on)
{
    saveTriangleMarks_ = on;
}
void MStlFileIO::SetSaveTriangleVisibilities(bool on)
{
    saveTriangleVisibilities_ = on;
}
void MStlFileIO::SetSaveTriangles(bool on)
{
    saveTriangles_ = on;
}

const char* MStlFileIO::GetErrorString(MErrorCode code)
{
    switch (code)
    {
    case eStlFileIOSuccess:
        return "File IO Succesfull.";
    case eStlFileIONoStl:
        return "No stl was set for stl file io.";
    case eStlFileIONoFile:
        return "No file was set for stl file io.";
    case eStlFileIOFileNotOpen:
        return "The file for stl file io was not open";
    case eStlFileIOFileNotOpenForReading:
        return "The file for stl file io was not open for reading";
    case eStlFileIOFileNotOpenForWriting:
        return "The file for stl file io was not open for writing";
    case eStlFileIOVersionNotSupported:
        return "The version of the file is not supported anymore.";
    case eStlFileIOBadFormat:
        return "Incorrect file format detected.";
    default:
        return "Unknown error detected.";
    }
}

const char* MStlFileIO::GetLastErrorString() const
{
    return GetErrorString(lastError_);
}

void MStlFileIO::SaveTag(unsigned char tag)
{
    file_->WRITE(&tag, 1);
}

MStlFileIO::MErrorCode MStlFileIO::LoadTag(unsigned char expected)
{
    unsigned char tag = 0;
    if (!file_->READ(&tag, 1) || tag != expected)
        return _SetError(eStlFileIOBadFormat);
    return eStlFileIOSuccess;
}

void MStlFileIO::_Steps(uint64_t count)
{
    // Advances the reporter once for every multiple of 8192 that the step counter passes.
    const uint64_t before = steps_ / kStepsPerReport;
    steps_ += count;
    uint64_t reports = steps_ / kStepsPerReport - before;
    if (progress_)
        while (reports-- > 0)
            ++*progress_;
}

bool MStlFileIO::_FileFailed() const
{
    return file_->GetStatus() != 0;
}

uint64_t MStlFileIO::_Remaining() const
{
    const int64_t remaining = file_->GetRemaining();
    return remaining > 0 ? static_cast<uint64_t>(remaining) : 0;
}

uint64_t MStlFileIO::GetPluginBytesLeft() const
{
    if (file_ == nullptr)
        return 0;
    const uint64_t inFile = _Remaining();
    if (pluginSectionEnd_ < 0)
        return inFile;
    const int64_t position = file_->Tell();
    const uint64_t inSection =
        position < pluginSectionEnd_ ? static_cast<uint64_t>(pluginSectionEnd_ - position) : 0;
    return std::min(inSection, inFile);
}

// ---- header and info block ----

MStlFileIO::MErrorCode MStlFileIO::_SaveHeader()
{
    SaveTag(NativeTags::kHeaderBegin);
    file_->WRITE_STRING_DATA(std::string(kMagic));
    SaveTag(NativeTags::kHeaderEnd);
    return _SetError(_FileFailed() ? eStlFileIOBadFormat : eStlFileIOSuccess);
}

MStlFileIO::MErrorCode MStlFileIO::_LoadHeader()
{
    if (LoadTag(NativeTags::kHeaderBegin) != eStlFileIOSuccess)
        return lastError_;
    // The magic text is read and not compared: files of other 6.x writers load as well.
    std::string magic;
    if (!file_->READ_STRING_DATA(magic))
        return _SetError(eStlFileIOBadFormat);
    if (LoadTag(NativeTags::kHeaderEnd) != eStlFileIOSuccess)
        return lastError_;
    return _SetError(eStlFileIOSuccess);
}

void MStlFileIO::_SaveInfo()
{
    if (mesh_ != nullptr)
        meshPresent_ = 1;
    const unsigned char info[10] = {saveColors_,   saveCurves_,        meshPresent_,
                                    saveMasks_,    savePoints_,        saveRegisteredPoints_,
                                    saveHistory_,  saveTriangleMarks_, saveTriangleVisibilities_,
                                    saveTriangles_};
    file_->WRITE(info, 10);
}

void MStlFileIO::_LoadInfo()
{
    unsigned char info[10] = {};
    file_->READ(info, 10);
    saveColors_ = info[0] != 0;
    saveCurves_ = info[1] != 0;
    meshPresent_ = info[2];
    saveMasks_ = info[3] != 0;
    savePoints_ = info[4] != 0;
    saveRegisteredPoints_ = info[5] != 0;
    saveHistory_ = info[6] != 0;
    saveTriangleMarks_ = info[7] != 0;
    saveTriangleVisibilities_ = info[8] != 0;
    saveTriangles_ = info[9] != 0;
}

// ---- whole file ----

MStlFileIO::MErrorCode MStlFileIO::Save(std::shared_ptr<IProgressDelegate> progress)
{
    if (file_ == nullptr)
        return _SetError(eStlFileIONoFile);
    if (_SaveHeader() != eStlFileIOSuccess)
        return lastError_;
    _SaveInfo();
    if (mesh_ == nullptr)
        return _SetError(eStlFileIONoStl);
    _SetError(_SaveStl(std::move(progress)));
    if (lastError_ == eStlFileIOSuccess && _FileFailed())
        _SetError(eStlFileIOBadFormat);
    return lastError_;
}

MStlFileIO::MErrorCode MStlFileIO::Load(std::shared_ptr<IProgressDelegate> progress)
{
    // The blocks of the points and triangles read serve the mesh's own blocks once consumed.
    const KelSDK::Triangles::Data::MStlBlockReuse reuse;
    loadedPluginSections_.clear();
    if (file_ == nullptr)
        return _SetError(eStlFileIONoFile);
    if (_LoadHeader() != eStlFileIOSuccess)
        return lastError_;
    _LoadInfo();
    if (mesh_ == nullptr)
        return _SetError(eStlFileIONoStl);
    _SetError(_LoadStl(std::move(progress)));
    // A truncated file reads zeros past its end; whatever the sections made of them, it is bad.
    if (lastError_ == eStlFileIOSuccess && _FileFailed())
        _SetError(eStlFileIOBadFormat);
    return lastError_;
}

namespace
{
// Releases the per-operation state (progress reporter, reference maps, build buffers) on every path.
template <typename F> struct ScopeExit
{
    F f;
    ~ScopeExit() { f(); }
};
template <typename F> ScopeExit<F> MakeScopeExit(F f)
{
    return ScopeExit<F>{std::move(f)};
}
} // namespace

MStlFileIO::MErrorCode MStlFileIO::_SaveStl(std::shared_ptr<IProgressDelegate> progress)
{
    MStlBase& mesh = *mesh_;
    auto cleanup = MakeScopeExit(
        [this]
        {
            progress_.reset();
            maps_->Clear();
        });
    maps_->Clear();
    steps_ = 0;
    MErrorCode code = _SaveStlProperties(mesh);
    if (code != eStlFileIOSuccess)
        return code;
    const uint64_t sum = vertexCount_ + triangleCount_;
    const uint64_t maximum = sum < kStepsPerReport ? 1 : sum / kStepsPerReport;
    progress_ = std::make_unique<IncrementalProgressReporter>(
        progress, "KelSDK.Triangles.Data.MStlFileIO._SaveStl", maximum);
    if ((code = _SaveStlBaseInfo(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveRegisteredPoints_ && (code = _SaveStlRegisteredPoints(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveMasks_ && (code = _SaveStlMasks(mesh)) != eStlFileIOSuccess)
        return code;
    if ((code = _SaveStlFaceGroupInfo(mesh)) != eStlFileIOSuccess)
        return code;
    return _SavePlugins(mesh);
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStl(std::shared_ptr<IProgressDelegate> progress)
{
    MStlBase& mesh = *mesh_;
    auto cleanup = MakeScopeExit(
        [this]
        {
            progress_.reset();
            maps_->Clear();
            buildCorners_ = {};
            buildSurfaces_ = {};
            buildColors_ = {};
        });
    maps_->Clear();
    steps_ = 0;
    if (savePoints_ && saveTriangles_)
        mesh.ClearStl(true);
    MErrorCode code = _LoadStlProperties(mesh);
    if (code != eStlFileIOSuccess)
        return code;
    // Counts of sections that are absent may be anything: the sum saturates.
    const uint64_t sum = vertexCount_ + std::min(triangleCount_, UINT64_MAX - vertexCount_);
    progress_ = std::make_unique<IncrementalProgressReporter>(
        progress, "KelSDK.Triangles.Data.MStlFileIO._LoadStl", sum / kStepsPerReport + 1);
    {
        // The base section reports through its own nested range; the step counter below still
        // advances the outer reporter.
        std::shared_ptr<IProgressDelegate> nested =
            progress_->CreateNestedDelegate(1.0 / static_cast<double>(progress_->GetMaxValue()));
        IncrementalProgressReporter baseReporter(nested, "KelSDK.Triangles.Data.MStlFileIO._LoadStlBaseInfo",
                                                 1);
        if ((code = _LoadStlBaseInfo(mesh)) != eStlFileIOSuccess)
            return code;
    }
    if (saveRegisteredPoints_ && (code = _LoadStlRegisteredPoints(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveMasks_ && (code = _LoadStlMasks(mesh)) != eStlFileIOSuccess)
        return code;
    if ((code = _LoadStlFaceGroupInfo(mesh)) != eStlFileIOSuccess)
        return code;
    return _LoadPlugins(mesh);
}

// ---- plug-in block ----

MStlFileIO::MErrorCode MStlFileIO::_SavePlugins(MStlBase& mesh)
{
    SaveTag(NativeTags::kPluginsBegin);
    const std::list<MStlFileIOPlugin*>& plugins = MStlFileIOPlugin::GetPlugins();
    const uint32_t count = static_cast<uint32_t>(plugins.size());
    file_->WRITE(&count, 1);
    for (MStlFileIOPlugin* plugin : plugins)
    {
        file_->WRITE_STRING_RAW(plugin->GetName());
        const int64_t patchPosition = file_->Tell();
        const uint32_t placeholder = 0;
        file_->WRITE(&placeholder, 1);
        plugin->SaveData(&mesh, this);
        const int64_t endPosition = file_->Tell();
        // Positions are stored cut to their low 32 bits; the reader restores the high bits.
        const uint32_t end32 = static_cast<uint32_t>(static_cast<uint64_t>(endPosition) & 0xFFFFFFFFu);
        file_->Seek(patchPosition);
        file_->WRITE(&end32, 1);
        file_->Seek(endPosition);
    }
    SaveTag(NativeTags::kPluginsEnd);
    return _FileFailed() ? eStlFileIOBadFormat : eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadPlugins(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kPluginsBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    // Each section holds at least a name length and an end position.
    if (_FileFailed() || count > _Remaining() / 8)
        return _SetError(eStlFileIOBadFormat);
    const std::list<MStlFileIOPlugin*>& plugins = MStlFileIOPlugin::GetPlugins();
    for (uint32_t i = 0; i < count; ++i)
    {
        std::wstring name;
        uint32_t end32 = 0;
        if (!ReadText(*file_, name) || !file_->READ(&end32, 1))
            return _SetError(eStlFileIOBadFormat);
        const int64_t payloadStart = file_->Tell();
        // The stored end is the low 32 bits of an absolute position at or after the payload start.
        uint64_t end = (static_cast<uint64_t>(payloadStart) & ~uint64_t(0xFFFFFFFFu)) | end32;
        if (end < static_cast<uint64_t>(payloadStart))
            end += uint64_t(1) << 32;
        if (end - static_cast<uint64_t>(payloadStart) > _Remaining())
            return _SetError(eStlFileIOBadFormat);
        loadedPluginSections_.push_back(name);
        for (MStlFileIOPlugin* plugin : plugins)
        {
            const wchar_t* pluginName = plugin->GetName();
            if (std::wcslen(pluginName) == name.size() &&
                std::wmemcmp(pluginName, name.data(), name.size()) == 0)
            {
                pluginSectionEnd_ = static_cast<int64_t>(end);
                auto leaveSection = MakeScopeExit([this] { pluginSectionEnd_ = -1; });
                plugin->LoadData(&mesh, this);
                break;
            }
        }
        // A plug-in that read too little or too much is corrected here; a read past the end
        // of the file by the plug-in is forgiven once the position is restored.
        if (file_->GetStatus() != 0)
            file_->ClearError();
        if (!file_->Seek(static_cast<int64_t>(end)))
            return _SetError(eStlFileIOBadFormat);
    }
    return LoadTag(NativeTags::kPluginsEnd);
}

// ---- properties ----

MStlFileIO::MErrorCode MStlFileIO::_SaveStlProperties(MStlBase& mesh)
{
    MStlBaseProperties& properties = mesh.GetProperties();
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    storageKind_ = static_cast<int>(hybrid.GetState());
    const bool isSupport = properties.GetIsSupport();
    const bool isSupposedSolid = properties.GetIsSupposedSolid();
    int e[6] = {0, 0, 0, 0, 0, 0};
    properties.CalculateExtremes(e[0], e[1], e[2], e[3], e[4], e[5]);
    vertexCount_ = hybrid.GetNumVertices();
    triangleCount_ = hybrid.GetNumTriangles();
    if (vertexCount_ == 0)
        std::fill(e, e + 6, 0);
    std::copy(e, e + 6, extremes_.begin());
    coordinateWidth_ = 4;
    if (storageKind_ == 0)
    {
        uint64_t extent = 0;
        for (int axis = 0; axis < 3; ++axis)
            extent = std::max<uint64_t>(extent, static_cast<uint64_t>(static_cast<int64_t>(e[2 * axis + 1]) -
                                                                      static_cast<int64_t>(e[2 * axis])));
        coordinateWidth_ = WidthForExtent(extent);
    }
    vertexIndexWidth_ = WidthForExtent(vertexCount_);
    triangleIndexWidth_ = WidthForExtent(triangleCount_);

    file_->WRITE(&isSupport, 1);
    file_->WRITE(&isSupposedSolid, 1);
    file_->WRITE(extremes_.data(), 6);
    file_->WRITE(&coordinateWidth_, 1);
    file_->WRITE(&vertexCount_, 1);
    file_->WRITE(&vertexIndexWidth_, 1);
    file_->WRITE(&triangleCount_, 1);
    file_->WRITE(&triangleIndexWidth_, 1);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlProperties(MStlBase& mesh)
{
    bool isSupport = false;
    bool isSupposedSolid = false;
    file_->READ(&isSupport, 1);
    file_->READ(&isSupposedSolid, 1);
    file_->READ(extremes_.data(), 6);
    file_->READ(&coordinateWidth_, 1);
    file_->READ(&vertexCount_, 1);
    file_->READ(&vertexIndexWidth_, 1);
    file_->READ(&triangleCount_, 1);
    file_->READ(&triangleIndexWidth_, 1);
    if (_FileFailed())
        return _SetError(eStlFileIOBadFormat);
    // Widths outside 1..4 cannot describe any packed list.
    if (coordinateWidth_ < 1 || coordinateWidth_ > 4 || vertexIndexWidth_ < 1 || vertexIndexWidth_ > 4 ||
        triangleIndexWidth_ < 1 || triangleIndexWidth_ > 4)
        return _SetError(eStlFileIOBadFormat);
    // A vertex of the point list and a triangle of the triangle list take at least three bytes
    // each: larger counts cannot be in this file. Without those lists the counts only describe
    // the mesh that was saved.
    if ((savePoints_ && vertexCount_ > _Remaining() / 3) ||
        (saveTriangles_ && triangleCount_ > _Remaining() / 3))
        return _SetError(eStlFileIOBadFormat);
    MStlBaseProperties& properties = mesh.GetProperties();
    properties.SetIsSupport(isSupport);
    properties.SetIsSupposedSolid(isSupposedSolid);
    return eStlFileIOSuccess;
}

// ---- mesh base section ----

MStlFileIO::MErrorCode MStlFileIO::_SaveStlBaseInfo(MStlBase& mesh)
{
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    SaveTag(NativeTags::kBaseBegin);
    file_->WRITE_STRING_DATA(
        std::string(kKindNames[storageKind_ >= 0 && storageKind_ <= 2 ? storageKind_ : 0]));
    // The OnDisk store reads its temporary files between OpenRead and Close.
    hybrid.OpenRead();
    auto closeStore = MakeScopeExit([&hybrid] { hybrid.Close(); });
    MErrorCode code = eStlFileIOSuccess;
    if (savePoints_)
    {
        const bool shared = hybrid.GetVerticesShared();
        file_->WRITE(&shared, 1);
        if ((code = _SaveStlPointList(mesh)) != eStlFileIOSuccess)
            return code;
    }
    if (saveTriangles_)
    {
        if ((code = _SaveStlTriangleList(mesh)) != eStlFileIOSuccess)
            return code;
        if ((code = _SaveStlSurfaceList(mesh)) != eStlFileIOSuccess)
            return code;
    }
    if (saveCurves_ && (code = _SaveStlCurveList(mesh)) != eStlFileIOSuccess)
        return code;
    if ((code = _SaveStlGraphFeature(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveColors_ && (code = _SaveStlColorInfo(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveTriangleMarks_ && (code = _SaveStlTriangleMarkInfo(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveTriangleVisibilities_ && (code = _SaveStlTriangleVisibilityInfo(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveHistory_ && (code = _SaveStlHistory(mesh)) != eStlFileIOSuccess)
        return code;
    SaveTag(NativeTags::kBaseEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlBaseInfo(MStlBase& mesh)
{
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    if (LoadTag(NativeTags::kBaseBegin) != eStlFileIOSuccess)
        return lastError_;
    std::string kind;
    if (!file_->READ_STRING_DATA(kind))
        return _SetError(eStlFileIOBadFormat);
    storageKind_ = eStlStandard;
    for (int k = 0; k < 3; ++k)
        if (kind == kKindNames[k])
            storageKind_ = k;
    // Switching the kind empties the mesh; a file that adds to the mesh keeps its kind.
    if (hybrid.GetState() != static_cast<MStlHybridState>(storageKind_))
        hybrid.SetState(static_cast<MStlHybridState>(storageKind_));
    bool shared = true;
    if (savePoints_)
        file_->READ(&shared, 1);
    hybrid.SetVerticesShared(shared);
    // The OnDisk store is written between the first added vertex and Close.
    auto closeStore = MakeScopeExit(
        [this, &hybrid, &mesh]
        {
            _FlushPendingPoints(mesh);
            if (storageKind_ != eStlStandard)
            {
                hybrid.Close();
                hybrid.UpdateParentBoundingBox();
            }
        });
    MErrorCode code = eStlFileIOSuccess;
    if (savePoints_)
    {
        if ((code = _LoadStlPointList(mesh)) != eStlFileIOSuccess)
            return code;
        if (storageKind_ == eStlCompact)
            hybrid.SetVerticesShared(shared);
    }
    if (saveTriangles_)
    {
        if ((code = _LoadStlTriangleList(mesh)) != eStlFileIOSuccess)
            return code;
        if ((code = _LoadStlSurfaceList(mesh)) != eStlFileIOSuccess)
            return code;
    }
    else
    {
        _FlushPendingPoints(mesh);
        _RegisterLoadedPoints(mesh);
    }
    if (saveCurves_ && (code = _LoadStlCurveList(mesh)) != eStlFileIOSuccess)
        return code;
    if ((code = _LoadStlGraphFeature(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveColors_ && (code = _LoadStlColorInfo(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveTriangleMarks_ && (code = _LoadStlTriangleMarkInfo(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveTriangleVisibilities_ && (code = _LoadStlTriangleVisibilityInfo(mesh)) != eStlFileIOSuccess)
        return code;
    if (saveHistory_ && (code = _LoadStlHistory(mesh)) != eStlFileIOSuccess)
        return code;
    return _SetError(LoadTag(NativeTags::kBaseEnd));
}

// ---- helpers for tools ----

bool MStlFileIO::IsNativeFile(const std::wstring& name)
{
    KelSDK::FileIO::MFile file;
    if (!file.OPEN_READ(name))
        return false;
    unsigned char first = 0xFF;
    std::string magic;
    const bool ok = file.READ(&first, 1) && first == NativeTags::kHeaderBegin &&
                    file.READ_STRING_DATA(magic) && magic == kMagic;
    file.Close();
    return ok;
}

MStlFileIO::MErrorCode MStlFileIO::ListPluginSections(const std::wstring& name,
                                                      std::vector<std::wstring>& sections)
{
    sections.clear();
    KelSDK::FileIO::MFile file;
    if (!file.OPEN_READ(name))
        return eStlFileIOFileNotOpen;
    // The format is not self-describing: the plug-in block is found by reading everything before it.
    MStlBase mesh;
    MStlFileIO reader;
    reader.SetStl(&mesh);
    reader.SetFile(file);
    const MErrorCode code = reader.Load(nullptr);
    sections = reader.GetLoadedPluginSections();
    file.Close();
    return code;
}
} // namespace KelSDK::Triangles::IO
